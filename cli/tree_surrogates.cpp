#include "cli/output_reader.hpp"
#include "cli/tree_view.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

void readSurrogates(const OutputReader& r, const Model& model, TreeView& tree) {
    const std::uint64_t n = tree.nodes.size();
    const Output lists[] = {kSurrogateLevels, kSurrogateDirections, kSurrogateCutPoints,
                            kSurrogatePredictors, kSurrogateAssociations};
    for (Output o : lists) {
        const cxArray* a = r.array(o);
        if (!r.isCell(o)) r.fail(o, "should be a cell");
        if (cxGetNumberOfElements(a) == 0) return;  // no surrogates were asked for
        if (cxGetM(a) != n || cxGetN(a) != 1) r.fail(o, "should be " + std::to_string(n) + " by 1");
    }
    const double D = static_cast<double>(model.predictors.size());
    for (std::uint64_t i = 0; i < n; ++i) {
        const auto cell = [&](Output o) { return cxGetCell(r.array(o), i); };
        const std::vector<double> predictors = r.list(kSurrogatePredictors, cell(kSurrogatePredictors), i);
        const std::vector<double> cuts = r.list(kSurrogateCutPoints, cell(kSurrogateCutPoints), i);
        const std::vector<double> directions = r.list(kSurrogateDirections, cell(kSurrogateDirections), i);
        const std::vector<double> associations =
            r.list(kSurrogateAssociations, cell(kSurrogateAssociations), i);
        const std::uint64_t s = predictors.size();
        if (cuts.size() != s || directions.size() != s || associations.size() != s) {
            r.fail(kSurrogatePredictors, "and the other surrogate outputs list different numbers "
                                         "of surrogates at node " + std::to_string(i + 1));
        }
        const cxArray* levels = cell(kSurrogateLevels);
        const bool hasLevels = levels != nullptr && cxGetNumberOfElements(levels) != 0;
        if (hasLevels && (cxGetClassID(levels) != cxCELL_CLASS || cxGetNumberOfElements(levels) != s)) {
            r.fail(kSurrogateLevels, "should hold one entry per surrogate at node " + std::to_string(i + 1));
        }
        for (std::uint64_t k = 0; k < s; ++k) {
            if (!whole(predictors[k], 1, D)) {
                r.fail(kSurrogatePredictors, "names predictor " + formatNumber(predictors[k]) +
                                                 " at node " + std::to_string(i + 1));
            }
            Surrogate g;
            g.predictor = static_cast<std::uint64_t>(predictors[k]) - 1;
            g.cut = cuts[k];
            g.direction = directions[k] < 0 ? -1 : 1;
            g.association = associations[k];
            const cxArray* pair = hasLevels ? cxGetCell(levels, k) : nullptr;
            if (pair != nullptr && cxGetClassID(pair) == cxCELL_CLASS) {
                if (cxGetNumberOfElements(pair) != 2) {
                    r.fail(kSurrogateLevels, "should pair left and right levels at node " + std::to_string(i + 1));
                }
                g.left = r.list(kSurrogateLevels, cxGetCell(pair, 0), i);
                g.right = r.list(kSurrogateLevels, cxGetCell(pair, 1), i);
                checkLevels(r, kSurrogateLevels, model, g.predictor, g.left, i);
                checkLevels(r, kSurrogateLevels, model, g.predictor, g.right, i);
            }
            tree.nodes[i].surrogates.push_back(std::move(g));
        }
    }
}

}  // namespace arbolin::cli
