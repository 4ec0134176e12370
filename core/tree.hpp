// The one object of a call: data, settings, criteria and the node vector.
#pragma once

#include <cstdint>

#include "core/node.hpp"
#include "core/types.hpp"

namespace arbolin {

template <class X, class Y, class W>
class Tree {
public:
    using NodeType = Node<X, Y, W>;

    virtual ~Tree() = default;

    // Grows the tree from the root's rows, layer by layer, under MaxSplits.
    void grow(const RowList& rows);

    const X* x = nullptr;
    std::uint64_t rowCount = 0;
    std::uint64_t predictorCount = 0;
    const Y* y = nullptr;
    const W* w = nullptr;
    bool* isCat = nullptr;
    std::uint64_t MaxCat = 0;
    std::uint64_t AlgCat = 0;
    std::uint64_t classNumber = 0;
    ClassificationSplitCriterion<Y, W>* classificationCriterion = nullptr;
    RegressionSplitCriterion<Y, W>* regressionCriterion = nullptr;
    std::uint64_t MinLeaf = 0;
    std::uint64_t MinParent = 0;
    std::uint64_t MaxSplits = 0;
    std::uint64_t SampleSize = 0;
    std::uint64_t SurrogateCount = 0;
    W RiskTolerance = 0;
    bool CurvatureFlag = false;
    bool InteractionFlag = false;
    bool ChisqFlag = false;
    StreamHandle* stream = nullptr;
    std::uint64_t Verbosity = 0;
    std::uint64_t nodeCount = 0;
    ScalableVector<NodeType> nodes;  // exactly nodeCount nodes once grow returns

private:
    NodeType makePrototype() const;
};

}  // namespace arbolin
