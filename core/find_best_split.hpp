// The search of one node for its best split.
#pragma once

#include <algorithm>
#include <limits>
#include <memory>

#include "columns/column_bodies.hpp"
#include "columns/matched_probability.hpp"
#include "core/node.hpp"
#include "core/stream_access.hpp"
#include "selection/choose_curvature.hpp"
#include "selection/choose_interactions.hpp"
#include "surrogates/route_missing_rows.hpp"
#include "surrogates/search_surrogates.hpp"

namespace arbolin {

namespace search_detail {

// The predictors of this node: all in order, or a draw from the stream
// whose order is kept, since it decides ties.
inline ScalableVector<std::uint64_t> drawPredictors(std::uint64_t sampleSize, std::uint64_t D,
                                                    StreamHandle* stream) {
    ScalableVector<std::uint64_t> sampled(sampleSize);
    if (sampleSize == D) {
        for (std::uint64_t j = 0; j < D; ++j) {
            sampled[j] = j;
        }
        return sampled;
    }
    ScalableVector<double> drawn(sampleSize);
    lotstream::randkpermFcn(streamOf(*stream), drawn.data(), sampleSize, static_cast<double>(D));
    for (std::uint64_t i = 0; i < sampleSize; ++i) {
        sampled[i] = toCount(drawn[i]) - 1;
    }
    return sampled;
}

}  // namespace search_detail

template <class X, class Y, class W>
bool Node<X, Y, W>::worthSearching() const {
    const TreeSettings<X, Y, W>& s = *settings;
    // Early exits, in this order. A NaN weight passes the first.
    if (W(0) >= CorrectedNodeProb) {
        return false;
    }
    if (NodeSize < s.MinParent) {
        return false;
    }
    if (s.classificationCriterion != nullptr) {
        const auto empty =
            static_cast<std::uint64_t>(std::count(ClassCount.begin(), ClassCount.end(), Y(0)));
        return ClassProb.size() - 1 > empty;  // more than one class present
    }
    return !(s.RiskTolerance > NodeRisk);
}

template <class X, class Y, class W>
ScalableVector<std::uint64_t> Node<X, Y, W>::drawPredictors() const {
    return search_detail::drawPredictors(settings->SampleSize, settings->predictorCount,
                                         settings->stream);
}

template <class X, class Y, class W>
SplitRows Node<X, Y, W>::findBestSplit(const RowList& rows, NodeOrder<X> order) {
    if (!worthSearching()) {
        return {};
    }
    return searchPredictors(rows, order, drawPredictors());
}

template <class X, class Y, class W>
SplitRows Node<X, Y, W>::searchPredictors(const RowList& rows, NodeOrder<X> order,
                                          const ScalableVector<std::uint64_t>& sampled) {
    const TreeSettings<X, Y, W>& s = *settings;
    const auto* const classificationCriterion = s.classificationCriterion;
    const auto* const regressionCriterion = s.regressionCriterion;
    const std::uint64_t predictorCount = s.predictorCount;
    const std::uint64_t rowCount = s.rowCount;
    const std::uint64_t MinLeaf = s.MinLeaf;
    const std::uint64_t Verbosity = s.Verbosity;
    const std::uint64_t K = ClassProb.size();
    const bool parallelCriterion = s.allowsParallel();

    const bool curvature = s.CurvatureFlag && sampled.size() >= 2 &&
                           NodeSize >= std::max<std::uint64_t>(K + 1, 2 * MinLeaf);
    const bool interaction = curvature && s.InteractionFlag;

    RowTable present(predictorCount);
    RowTable missing(predictorCount);
    ScalableVector<char> presorted(predictorCount, 0);
    LoopConditions loops{parallelCriterion, Verbosity};
    // A small node's predictors cost less than the tasks that would share them.
    loops.serial = NodeSize * sampled.size() < kSmallNodeWork;
    ColumnNaNRemover<X> remover{s.x, rowCount, &rows, &present, &missing};
    remover.sorted = order.rows;
    remover.segment = order.segment;
    remover.minLeaf = MinLeaf;
    remover.numericUnsorted = curvature && !interaction && !s.ChisqFlag;
    remover.isCat = s.isCat;
    remover.presorted = &presorted;
    forEachPredictor(Phase::MissingValues, loops, sampled, remover);

    // With one weight for all rows, a class's total over the rows of a column
    // that has them all is that weight added once per row of the class, in
    // whatever order: looked up here once, not summed by every column.
    ClassWeights<W> uniformTotals;
    const W* repeatedSums = s.responses != nullptr ? s.responses->repeatedSums() : nullptr;
    if (classificationCriterion != nullptr && repeatedSums != nullptr &&
        (sizeof(Y) >= sizeof(double) || NodeSize < (std::uint64_t{1} << 24))) {
        uniformTotals.assign(K, W(0));
        for (std::size_t k = 0; k < K; ++k) {
            uniformTotals[k] = repeatedSums[static_cast<std::uint64_t>(ClassCount[k])];
        }
    }

    ColumnTable<X, Y, W> columns(predictorCount);
    for (std::uint64_t j : sampled) {
        ColumnSetup<X, Y, W> setup;
        setup.curvature = curvature;
        setup.interaction = interaction;
        setup.nominal = s.isCat[j];
        setup.rowCount = rowCount;
        setup.x = s.x + rowCount * j;
        setup.y = s.y;
        setup.w = s.w;
        setup.present = &present[j];
        setup.missing = &missing[j];
        setup.classCount = K;
        setup.nodeClassProb = &ClassProb;
        setup.nodeValue = NodeValue;
        setup.nodeProb = NodeProb;
        setup.minLeaf = MinLeaf;
        setup.nodeRisk = NodeRisk;
        setup.parentProb = CorrectedNodeProb;
        setup.presentProb = CorrectedNodeProb;
        setup.classCriterion = classificationCriterion;
        setup.regressionCriterion = regressionCriterion;
        setup.maxCat = s.MaxCat;
        setup.algCat = s.AlgCat;
        setup.fullSort = s.SurrogateCount != 0;
        setup.verbosity = Verbosity;
        setup.sorted = order.rows;
        setup.segment = order.segment;
        setup.responses = s.responses;
        setup.predictor = j;
        setup.presorted = presorted[j] != 0;
        setup.uniformTotals = uniformTotals.empty() ? nullptr : &uniformTotals;
        columns[j] = std::make_unique<IndexedColumn<X, Y, W>>(setup);
    }

    ColumnOperator<X, Y, W> work{&columns, curvature, interaction, s.ChisqFlag, Verbosity};
    work.searchNow = !curvature && Verbosity <= 1;
    forEachPredictor(Phase::PerPredictorWork, loops, sampled, work);

    // Choosing the predictors by curvature, then by interaction.
    ScalableVector<std::uint64_t> chosen;
    const ScalableVector<std::uint64_t>* searchList = &sampled;
    if (curvature) {
        const W bestP = chooseByCurvature(sampled, columns, chosen, details().CurvatureTests);
        if (interaction && bestP > W(0)) {
            testInteractions(sampled, columns, bestP, loops, chosen, details().InteractionTests);
        }
        searchList = &chosen;
    }

    if (!work.searchNow) {
        forEachPredictor(Phase::ExhaustiveSearch, loops, *searchList,
                         ColumnSplitter<X, Y, W>{&columns, Verbosity});
    }
    if (searchList->empty()) {
        return {};
    }

    // The earliest predictor of the list wins a tie.
    W best = std::numeric_limits<W>::lowest();
    IndexedColumn<X, Y, W>* winner = nullptr;
    std::int64_t winnerIndex = -1;
    for (std::uint64_t j : *searchList) {
        if (columns[j]->bestSplit.gain > best) {
            best = columns[j]->bestSplit.gain;
            winner = columns[j].get();
            winnerIndex = static_cast<std::int64_t>(j);
        }
    }
    if (winner == nullptr) {
        return {};
    }

    winner->holdPresent();
    SplitRows result = winner->splitRows(winner->bestSplit);
    CutPoint = winner->cutPoint(winner->bestSplit);
    auto levels = winner->splitLevels(winner->bestSplit);
    if (!levels.first.empty() || !levels.second.empty()) {
        details().LeftLevels = std::move(levels.first);
        details().RightLevels = std::move(levels.second);
    }
    CutVar = winnerIndex;
    Gain = best;

    if (s.SurrogateCount == 0) {
        if (!winner->missing_->empty()) {
            HasUnroutedRows = true;  // those rows go to neither child
        }
        return result;
    }

    const auto left = makeMatchedProbability(K, s.y, s.w, classificationCriterion);
    const auto right = makeMatchedProbability(K, s.y, s.w, classificationCriterion);
    left->add(result.left.data(), result.left.data() + result.left.size());
    right->add(result.right.data(), result.right.data() + result.right.size());
    W leftP;
    W rightP;
    left->get(&leftP);
    right->get(&rightP);
    const W minP = std::min(leftP, rightP) / CorrectedNodeProb;
    if (Verbosity > 3) {
        calyxPrintf("       minP=%g\n", static_cast<double>(minP));
    }
    if (W(0) >= minP) {
        // The node keeps CutVar, CutPoint and Gain and yet gets no children.
        return {};
    }
    RowList unrouted(*winner->missing_);
    {
        // The winner is out of the table while the others imitate it.
        std::unique_ptr<IndexedColumn<X, Y, W>> winnerColumn = std::move(columns[winnerIndex]);
        details().surrogates.searchSurrogates(columns, result, sampled, minP, s.SurrogateCount,
                                              loops);
        columns[winnerIndex] = std::move(winnerColumn);
    }
    details().surrogates.routeMissingRows(unrouted, result, s.x, rowCount);
    if (!unrouted.empty()) {
        HasUnroutedRows = true;
    }
    return result;
}

}  // namespace arbolin
