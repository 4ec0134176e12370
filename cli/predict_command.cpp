#include <CLI/CLI.hpp>

#include <iostream>
#include <limits>
#include <optional>

#include "cli/bundled_data.hpp"
#include "cli/commands.hpp"
#include "cli/csv_table.hpp"
#include "cli/reading_options.hpp"
#include "cli/csv_writer.hpp"
#include "cli/errors.hpp"
#include "cli/model.hpp"
#include "cli/output_file.hpp"
#include "cli/routing.hpp"
#include "cli/tree_view.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

namespace {

std::string quotedList(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& n : names) text += (text.empty() ? "\"" : ", \"") + n + "\"";
    return text;
}

// The predictors' columns of `table` that the tree looks at, coded as the
// module saw them while growing: rows by predictors, column-major. A
// predictor no split or surrogate uses stays NaN and need not be in the
// file; one only surrogates use counts as missing when it is absent.
std::vector<double> codePredictors(const Model& model, const TreeView& tree, const CsvTable& table,
                                   const MissingValues& missing) {
    const std::uint64_t D = model.predictors.size();
    enum class Use { None, Surrogate, Split };
    std::vector<Use> use(D, Use::None);
    for (const TreeNode& node : tree.nodes) {
        if (!node.branch()) continue;
        use[static_cast<std::uint64_t>(node.split)] = Use::Split;
        for (const Surrogate& s : node.surrogates) {
            if (use[s.predictor] == Use::None) use[s.predictor] = Use::Surrogate;
        }
    }
    std::vector<std::optional<std::uint64_t>> columns(D);
    std::vector<std::string> absentSplits, absentSurrogates;
    for (std::uint64_t j = 0; j < D; ++j) {
        if (use[j] == Use::None) continue;
        columns[j] = table.find(model.predictors[j].name);
        if (columns[j]) continue;
        auto& absent = use[j] == Use::Split ? absentSplits : absentSurrogates;
        absent.push_back(model.predictors[j].name);
    }
    if (!absentSplits.empty()) {
        throw UserError(table.path() + " has no column" + (absentSplits.size() == 1 ? " " : "s ") +
                        quotedList(absentSplits) + ", which the model uses in its splits");
    }
    if (!absentSurrogates.empty()) {
        std::cerr << "arbolin: note: " << table.path() << " has no column"
                  << (absentSurrogates.size() == 1 ? " " : "s ") << quotedList(absentSurrogates)
                  << ", which only surrogate splits use; every row counts as missing "
                  << (absentSurrogates.size() == 1 ? "it" : "them") << '\n';
    }
    const std::uint64_t N = table.rowCount();
    std::vector<double> x(N * D, std::numeric_limits<double>::quiet_NaN());
    for (std::uint64_t j = 0; j < D; ++j) {
        if (!columns[j]) continue;
        const Predictor& p = model.predictors[j];
        std::uint64_t unseen = 0;
        for (std::uint64_t i = 0; i < N; ++i) {
            x[j * N + i] = codeField(p, table, i, *columns[j], missing, unseen);
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
        codePredictors(model, tree, table, missingValues(args.options, model.options));
    OutputFile out(args.output);
    writePredictions(out.stream(), model, tree, x, table.rowCount());
    out.commit();
}

}  // namespace arbolin::cli
