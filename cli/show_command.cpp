#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <numeric>

#include "cli/commands.hpp"
#include "cli/output_file.hpp"
#include "frontend/importance.hpp"
#include "frontend/pruning.hpp"
#include "frontend/render.hpp"

namespace arbolin::cli {

using namespace arbolin::frontend;

namespace {

std::string cell(double v) { return std::isfinite(v) ? formatShort(v, 6) : std::string("-"); }

void printPruning(std::ostream& out, const PruningRecord& record) {
    out << "Cost-complexity sequence of the tree as grown: " << record.steps.size()
        << (record.steps.size() == 1 ? " subtree" : " subtrees")
        << "; risk in units where the training weights sum to 1";
    if (record.folds > 0) {
        out << "; " << record.folds << "-fold cross-validation, rule " << record.rule;
    }
    out << '\n'
        << "  step  " << std::setw(12) << "alpha" << std::setw(8) << "leaves" << std::setw(13)
        << "risk" << std::setw(13) << "cv risk" << std::setw(13) << "std error" << '\n';
    for (std::size_t k = 0; k < record.steps.size(); ++k) {
        const PruningStep& s = record.steps[k];
        out << (k == record.chosen ? "* " : "  ") << std::setw(4) << k << "  " << std::setw(12)
            << formatShort(s.alpha, 6) << std::setw(8) << s.leaves << std::setw(13)
            << cell(s.risk) << std::setw(13) << cell(s.cvRisk) << std::setw(13)
            << cell(s.cvError) << '\n';
    }
    out << "* the subtree this model holds\n";
}

void printImportance(std::ostream& out, const Model& model, const TreeView& tree,
                     bool surrogates) {
    const std::vector<double> share =
        featureImportance(tree, model.predictors.size(), surrogates);
    std::vector<std::size_t> order(share.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return share[a] > share[b]; });
    std::size_t width = 9;
    for (const Predictor& p : model.predictors) width = std::max(width, p.name.size());
    out << "Importance: each predictor's share of the split gains"
        << (surrogates ? ", surrogate gains added" : "") << '\n';
    for (std::size_t j : order) {
        out << "  " << std::left << std::setw(static_cast<int>(width)) << model.predictors[j].name
            << std::right << "  " << formatShort(share[j], 4) << '\n';
    }
}

}  // namespace

void runShow(const ShowArgs& args) {
    const Model model = loadModel(args.model);
    const TreeView tree = readTree(model, args.model);
    if (args.pruning && args.format == "dot") {
        failOption("format", "dot draws a tree; the sequence is text or svg");
    }
    OutputFile out(args.output);
    if (args.pruning) {
        const PruningRecord record = pruningRecord(model, tree);
        if (args.format == "svg") {
            renderPruningSvg(out.stream(), record);
        } else {
            printPruning(out.stream(), record);
        }
    } else if (args.importance) {
        printImportance(out.stream(), model, tree, args.surrogates);
    } else if (args.format == "dot") {
        renderDot(out.stream(), model, tree);
    } else if (args.format == "svg") {
        renderSvg(out.stream(), model, tree);
    } else {
        renderText(out.stream(), model, tree);
    }
    out.commit();
}

void runPrune(const PruneArgs& args) {
    const Model model = loadModel(args.model);
    const TreeView tree = readTree(model, args.model);
    if (!args.alpha && !args.leaves) failOption("alpha", "or --leaves is needed: which subtree?");
    const PruningRecord record = pruningRecord(model, tree);
    std::uint64_t step = args.alpha ? stepForAlpha(record.steps, *args.alpha)
                                    : stepForLeaves(record.steps, *args.leaves);
    if (step < record.chosen) {
        std::cout.flush();
        std::cerr << "arbolin: note: " << args.model << " is already pruned to "
                  << record.steps[record.chosen].leaves
                  << " leaves; a pruned tree cannot grow back, so it stays as it is\n";
        step = record.chosen;
    }
    const Model pruned = pruneToStep(model, tree, step);
    OutputFile file(args.output);
    file.stream() << modelText(pruned);
    file.commit();
    const PruningStep& s = record.steps[step];
    std::cout << "Pruned to step " << step << " of " << record.steps.size() << ": "
              << s.leaves << (s.leaves == 1 ? " leaf" : " leaves") << ", alpha "
              << formatShort(s.alpha, 10) << ", risk " << formatShort(s.risk, 6);
    if (std::isfinite(s.cvRisk)) {
        std::cout << ", cross-validated risk " << formatShort(s.cvRisk, 6) << " (std error "
                  << formatShort(s.cvError, 3) << ")";
    }
    std::cout << "\nmodel written to " << args.output << '\n';
}

}  // namespace arbolin::cli
