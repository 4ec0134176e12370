// The record of one tree node. Nodes live side by side in one vector and
// refer to each other by index; what they share (data, criteria, settings)
// they read through one pointer to the tree's settings.
#pragma once

#include <cstdint>
#include <limits>

#include "columns/sorted_segments.hpp"
#include "core/surrogate_set.hpp"
#include "core/tree_settings.hpp"
#include "core/types.hpp"
#include "gateway/numora.hpp"

namespace arbolin {

template <class W>
struct CurvatureTest {
    std::uint64_t predictor;
    W pValue;
};

template <class W>
struct InteractionTest {
    std::uint64_t first;
    std::uint64_t second;
    W pValue;
};

template <class X, class Y, class W>
struct Node {
    const TreeSettings<X, Y, W>* settings = nullptr;
    std::uint64_t NodeSize = 0;
    std::uint64_t id = 0;
    std::int64_t parent = -1;
    std::uint64_t leftChild = 0;  // 0: none (the root is nobody's child)
    std::uint64_t rightChild = 0;
    W NodeValue = 0;
    W NodeProb = 0;
    W CorrectedNodeProb = 0;
    ScalableVector<Y> ClassCount;
    ScalableVector<W> ClassProb;
    X CutPoint = std::numeric_limits<X>::quiet_NaN();
    ScalableVector<X> LeftLevels;
    ScalableVector<X> RightLevels;
    std::int64_t CutVar = -1;
    W NodeRisk = std::numeric_limits<W>::quiet_NaN();
    W Gain = 0;
    ScalableVector<CurvatureTest<W>> CurvatureTests;
    ScalableVector<InteractionTest<W>> InteractionTests;
    bool HasUnroutedRows = false;
    SurrogateSet<X, W> surrogates;

    bool isBranch() const { return leftChild != 0 || rightChild != 0; }

    // Fills size, weight, class distribution, predicted value and risk.
    void initNode(const RowList& rows);
    // Decides whether the node is split and how; both lists are empty for a
    // leaf. `order` gives the node's rows in order of each predictor.
    SplitRows findBestSplit(const RowList& rows, NodeOrder<X> order = {});
    // Withdraws a split found for this node.
    void unsplit();
};

template <class X, class Y, class W>
void Node<X, Y, W>::unsplit() {
    CutPoint = std::numeric_limits<X>::quiet_NaN();
    ScalableVector<X>().swap(LeftLevels);
    ScalableVector<X>().swap(RightLevels);
    CutVar = -1;
    Gain = 0;
    surrogates.clear();
}

}  // namespace arbolin
