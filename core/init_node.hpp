// Node statistics: what is known of a node before any split is looked for.
#pragma once

#include "core/node.hpp"

namespace arbolin {

// The verbose report of a node; `corrected` is null in regression, which
// leaves an empty line in its place.
template <class NodeT, class W>
void printStatistics(const NodeT& node, const ClassWeights<W>* corrected) {
    if (node.settings->Verbosity == 0) {
        return;
    }
    calyxPrintf("  NodeProb = %g\n", static_cast<double>(node.NodeProb));
    calyxPrintf("  Corrected NodeProb = %g\n", static_cast<double>(node.CorrectedNodeProb));
    calyxPrintf("  ClassProb: ");
    for (W p : node.ClassProb) {
        calyxPrintf(" %g", static_cast<double>(p));
    }
    calyxPrintf("\n");
    if (corrected != nullptr) {
        calyxPrintf("  Corrected ClassProb: ");
        for (W v : *corrected) {
            calyxPrintf(" %g", static_cast<double>(v));
        }
    }
    calyxPrintf("\n");
    calyxPrintf("  NodeRisk = %g\n", static_cast<double>(node.NodeRisk));
}

template <class X, class Y, class W>
void Node<X, Y, W>::initNode(const RowList& rows) {
    NodeSize = rows.size();
    const std::size_t K = ClassProb.size();
    const Y* const y = settings->y;
    const W* const w = settings->w;
    const auto* const classificationCriterion = settings->classificationCriterion;

    if (classificationCriterion != nullptr) {
        ClassWeights<W> s(K, W(0));
        for (std::uint64_t r : rows) {
            s[classOf(y[r])] += w[r];
        }
        ClassProb.assign(s.begin(), s.end());
        NodeProb = sumInOrder(ClassProb);
        for (W& p : ClassProb) {
            p /= NodeProb;
        }
        ClassCount.assign(K, Y(0));
        for (std::uint64_t r : rows) {
            ClassCount[classOf(y[r])] += Y(1);
        }
        // The lowest class wins a tie; NaN probabilities leave class 0.
        std::size_t best = 0;
        for (std::size_t i = 1; i < K; ++i) {
            if (ClassProb[i] > ClassProb[best]) {
                best = i;
            }
        }
        NodeValue = static_cast<W>(best);
        // Rebuilt from the normalised probabilities, not from s: rounding
        // takes the route through the division.
        ClassWeights<W> c(K);
        for (std::size_t i = 0; i < K; ++i) {
            c[i] = ClassProb[i] * NodeProb;
        }
        classificationCriterion->correct(c, c);
        NodeRisk = classificationCriterion->parent(c);
        CorrectedNodeProb = sumInOrder(c);
        printStatistics(*this, &c);
        return;
    }

    ClassProb.assign(1, W(1));
    ClassCount.assign(1, static_cast<Y>(rows.size()));
    NodeProb = 0;
    for (std::uint64_t r : rows) {
        NodeProb += w[r];
    }
    W weighted = 0;
    for (std::uint64_t r : rows) {
        weighted += static_cast<W>(y[r]) * w[r];
    }
    NodeValue = weighted / NodeProb;
    CorrectedNodeProb = NodeProb;
    NodeRisk = settings->regressionCriterion->parent(y, w, rows);
    printStatistics(*this, static_cast<const ClassWeights<W>*>(nullptr));
}

}  // namespace arbolin
