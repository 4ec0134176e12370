#include "cli/bundled_data.hpp"
#include "cli/commands.hpp"
#include "cli/csv.hpp"
#include "cli/output_file.hpp"
#include "frontend/model.hpp"

namespace arbolin::cli {

using namespace arbolin::frontend;

namespace {

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
    const std::vector<std::uint64_t> reached = routeRows(tree, x, N);
    for (std::uint64_t i = 0; i < N; ++i) {
        const TreeNode& node = tree.nodes[reached[i]];
        row.clear();
        if (model.classification) {
            row.push_back(model.classes.label(node.value));
            for (double p : node.classProb) row.push_back(number(tree, p));
        } else {
            row.push_back(number(tree, node.value));
        }
        row.push_back(std::to_string(reached[i] + 1));
        writeCsvRow(out, row);
    }
}

}  // namespace

void runPredict(const PredictArgs& args) {
    const Model model = loadModel(args.model);
    const TreeView tree = readTree(model, args.model);
    const CsvTable table = CsvTable::read(resolveDataFile(args.data), csvFormat(args.options));
    printNotices(table.notices());
    std::vector<std::string> tokens = args.options.list("missing");
    tokens.insert(tokens.end(), model.missing.begin(), model.missing.end());
    Notices notices;
    std::vector<double> x;
    try {
        x = codeRows(model, tree, table, MissingValues(std::move(tokens)), notices);
    } catch (const UserError&) {
        printNotices(notices);  // what was found before the error
        throw;
    }
    printNotices(notices);
    OutputFile out(args.output);
    writePredictions(out.stream(), model, tree, x, table.rowCount());
    out.commit();
}

}  // namespace arbolin::cli
