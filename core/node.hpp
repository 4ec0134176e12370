// The record of one tree node. Nodes live side by side in one vector and
// refer to each other by index; what they share (data, criteria, settings)
// they read through one pointer to the tree's settings.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>

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

// Owns one object, made on demand, and copies it when copied.
template <class T>
class DeepPtr {
public:
    DeepPtr() = default;
    DeepPtr(const DeepPtr& other) : p_(other.p_ ? std::make_unique<T>(*other.p_) : nullptr) {}
    DeepPtr& operator=(const DeepPtr& other) {
        if (this != &other) {
            p_ = other.p_ ? std::make_unique<T>(*other.p_) : nullptr;
        }
        return *this;
    }
    DeepPtr(DeepPtr&&) noexcept = default;
    DeepPtr& operator=(DeepPtr&&) noexcept = default;

    T* get() const { return p_.get(); }
    T& make() {
        if (!p_) {
            p_ = std::make_unique<T>();
        }
        return *p_;
    }

private:
    std::unique_ptr<T> p_;
};

// What only some nodes have: the levels of a nominal split, test results
// and surrogates. Held apart, so that the many nodes without them stay small.
template <class X, class W>
struct NodeDetails {
    ScalableVector<X> LeftLevels;
    ScalableVector<X> RightLevels;
    ScalableVector<CurvatureTest<W>> CurvatureTests;
    ScalableVector<InteractionTest<W>> InteractionTests;
    SurrogateSet<X, W> surrogates;
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
    std::int64_t CutVar = -1;
    W NodeRisk = std::numeric_limits<W>::quiet_NaN();
    W Gain = 0;
    bool HasUnroutedRows = false;

    // The node's details to read: empty lists when it has none.
    const NodeDetails<X, W>& detail() const {
        return details_.get() != nullptr ? *details_.get() : noDetails;
    }
    // The node's details to fill, made on first use.
    NodeDetails<X, W>& details() { return details_.make(); }

    bool isBranch() const { return leftChild != 0 || rightChild != 0; }

    // Fills size, weight, class distribution, predicted value and risk.
    void initNode(const RowList& rows);
    // Decides whether the node is split and how; both lists are empty for a
    // leaf. `order` gives the node's rows in order of each predictor.
    SplitRows findBestSplit(const RowList& rows, NodeOrder<X> order = {});
    // findBestSplit in two steps, for a layer whose nodes are searched at
    // once: whether the node is searched at all, the predictors it draws
    // from the stream (drawn in node order), and the search over them.
    bool worthSearching() const;
    ScalableVector<std::uint64_t> drawPredictors() const;
    SplitRows searchPredictors(const RowList& rows, NodeOrder<X> order,
                               const ScalableVector<std::uint64_t>& sampled);
    // Withdraws a split found for this node.
    void unsplit();

private:
    static inline const NodeDetails<X, W> noDetails{};
    DeepPtr<NodeDetails<X, W>> details_;
};

template <class X, class Y, class W>
void Node<X, Y, W>::unsplit() {
    CutPoint = std::numeric_limits<X>::quiet_NaN();
    if (NodeDetails<X, W>* d = details_.get()) {
        ScalableVector<X>().swap(d->LeftLevels);
        ScalableVector<X>().swap(d->RightLevels);
        d->surrogates.clear();
    }
    CutVar = -1;
    Gain = 0;
}

}  // namespace arbolin
