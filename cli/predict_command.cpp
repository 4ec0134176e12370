#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "cli/bundled_data.hpp"
#include "cli/commands.hpp"
#include "cli/csv_table.hpp"
#include "cli/reading_options.hpp"
#include "cli/csv_writer.hpp"
#include "cli/errors.hpp"
#include "cli/model.hpp"
#include "cli/routing.hpp"
#include "cli/tree_view.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

namespace {

// The predictors' columns of `table`, coded as the module saw them while
// growing: rows by predictors, column-major.
std::vector<double> codePredictors(const Model& model, const CsvTable& table,
                                   const MissingValues& missing) {
    const std::uint64_t N = table.rowCount();
    std::vector<double> x(N * model.predictors.size());
    for (std::uint64_t j = 0; j < model.predictors.size(); ++j) {
        const Predictor& p = model.predictors[j];
        const auto column = table.find(p.name);
        if (!column) {
            throw UserError(table.path() + " has no column \"" + p.name +
                            "\", which the model uses as a predictor");
        }
        std::uint64_t unseen = 0;
        for (std::uint64_t i = 0; i < N; ++i) {
            x[j * N + i] = codeField(p, table, i, *column, missing, unseen);
        }
        if (unseen != 0) {
            std::cerr << "arbolin: note: " << unseen << " value(s) of " << p.name << " in "
                      << table.path() << " were not seen in training; they count as missing\n";
        }
    }
    return x;
}

std::string number(const TreeView& tree, double v) {
    return tree.singleWeights ? formatFloat(static_cast<float>(v)) : formatNumber(v);
}

void writePredictions(std::ostream& out, const Model& model, const TreeView& tree,
                      const std::vector<double>& x, std::uint64_t N) {
    std::vector<std::string> header{"prediction"};
    if (model.classification) {
        for (const std::string& label : model.classes.labels()) header.push_back("prob_" + label);
    }
    header.push_back("node");
    writeCsvRow(out, header);
    std::vector<std::string> row;
    for (std::uint64_t i = 0; i < N; ++i) {
        const std::uint64_t reached = routeRow(tree, x.data() + i, N);
        const TreeNode& node = tree.nodes[reached];
        row.clear();
        if (model.classification) {
            row.push_back(model.classes.label(node.value));
            for (double p : node.classProb) row.push_back(number(tree, p));
        } else {
            row.push_back(number(tree, node.value));
        }
        row.push_back(std::to_string(reached + 1));
        writeCsvRow(out, row);
    }
}

}  // namespace

CLI::App* addPredictCommand(CLI::App& app, PredictArgs& args) {
    CLI::App* predict =
        app.add_subcommand("predict", "apply a saved tree to the rows of a CSV file");
    predict->add_option("model", args.model, "model JSON written by arbolin fit")
        ->required()
        ->type_name("MODEL.json");
    predict->add_option("data", args.data,
                        "CSV file with a header row naming the predictors, or a bundled data set")
        ->required()
        ->type_name("DATA");
    predict->add_option("--output", args.output, "write to this file [default: standard output]")
        ->type_name("FILE");
    addReadingOptions(*predict, args.options);
    predict->footer(
        "Writes one row per data row: the prediction, in classification the class shares "
        "(prob_LABEL), and the number of the node the row reached.\n");
    return predict;
}

void runPredict(const PredictArgs& args) {
    const Model model = loadModel(args.model);
    const TreeView tree = readTree(model, args.model);
    const CsvTable table = CsvTable::read(resolveDataFile(args.data), csvFormat(args.options));
    table.notices().print(std::cerr);
    const std::vector<double> x =
        codePredictors(model, table, missingValues(args.options, model.options));
    std::ofstream file;
    if (!args.output.empty()) {
        file.open(args.output, std::ios::trunc);
        if (!file) throw UserError("cannot write " + args.output + ": " + std::strerror(errno));
    }
    std::ostream& out = args.output.empty() ? std::cout : file;
    writePredictions(out, model, tree, x, table.rowCount());
    out.flush();
    if (!out) throw UserError("cannot write " + (args.output.empty() ? "the output" : args.output));
}

}  // namespace arbolin::cli
