// The one object of a call: the settings and the node vector.
#pragma once

#include <cstdint>

#include "core/node.hpp"
#include "core/tree_settings.hpp"
#include "core/types.hpp"

namespace arbolin {

template <class X, class Y, class W>
class Tree {
public:
    using NodeType = Node<X, Y, W>;

    explicit Tree(const TreeSettings<X, Y, W>& s) : settings(s) {}
    // Nodes point at `settings`: the tree stays where it was made.
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    // Grows the tree from the root's rows, layer by layer, under MaxSplits.
    // The root's rows are taken over: they become the root's list.
    void grow(RowList rows);

    TreeSettings<X, Y, W> settings;
    ScalableVector<NodeType> nodes;  // every node counted, once grow returns

private:
    NodeType makePrototype() const;
    ScalableVector<SplitRows> searchLayer(std::uint64_t first, ScalableVector<RowList>& rows,
                                          ScalableVector<NodeSegment>& segments,
                                          const SortedSegments<X>* sorted);
};

}  // namespace arbolin
