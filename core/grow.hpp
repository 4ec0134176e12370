// The layer-wise growth loop.
#pragma once

#include <algorithm>
#include <deque>
#include <exception>
#include <optional>

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>

#include "columns/fork_join_order.hpp"
#include "core/init_node.hpp"
#include "core/split_candidate.hpp"
#include "core/tree.hpp"

namespace arbolin {

template <class X, class Y, class W>
typename Tree<X, Y, W>::NodeType Tree<X, Y, W>::makePrototype() const {
    NodeType node;
    node.settings = &settings;
    node.ClassCount.assign(settings.classNumber, Y(0));
    node.ClassProb.assign(settings.classNumber, W(0));
    return node;
}

// The size of the node vector guessed from the root: (n - MinParent) * 2 / 3
// / MinLeaf in integers, at least 1.
inline std::uint64_t estimateNodeCount(std::uint64_t n, std::uint64_t minParent,
                                       std::uint64_t minLeaf) {
    if (minParent >= n) {
        return 1;
    }
    const std::uint64_t estimate = (n - minParent) * 2 / 3 / minLeaf;
    return estimate == 0 ? 1 : estimate;
}

// Searches the nodes of one layer. Each node reads only what the tree
// shares and writes only itself, so when nothing is printed and the
// criterion allows it the nodes are searched at once: the stream is drawn
// in node order first, and of several errors the first node's is raised,
// as in a pass in node order. A node's row list is released when its
// search ends.
template <class X, class Y, class W>
ScalableVector<SplitRows> Tree<X, Y, W>::searchLayer(std::uint64_t first,
                                                     ScalableVector<RowList>& rows,
                                                     ScalableVector<NodeSegment>& segments,
                                                     const SortedSegments<X>* sorted) {
    const std::uint64_t count = rows.size();
    ScalableVector<SplitRows> splits(count);
    auto orderOf = [&](std::uint64_t k) {
        return sorted != nullptr ? NodeOrder<X>{sorted, &segments[k]} : NodeOrder<X>{};
    };
    const bool together = settings.nodesInParallel && settings.Verbosity == 0 &&
                          settings.allowsParallel() && count > 1;
    if (!together) {
        for (std::uint64_t k = 0; k < count; ++k) {
            if (settings.Verbosity != 0) {
                calyxPrintf("    Splitting node %i...\n", first + k);
            }
            splits[k] = nodes[first + k].findBestSplit(rows[k], orderOf(k));
            RowList().swap(rows[k]);
        }
        return splits;
    }
    ScalableVector<ScalableVector<std::uint64_t>> drawn(count);
    ScalableVector<char> searched(count, 0);
    for (std::uint64_t k = 0; k < count; ++k) {
        if (nodes[first + k].worthSearching()) {
            searched[k] = 1;
            drawn[k] = nodes[first + k].drawPredictors();
        }
    }
    ScalableVector<std::exception_ptr> errors(count);
    const auto searchRange = [&](const tbb::blocked_range<std::uint64_t>& range) {
        for (std::uint64_t k = range.begin(); k != range.end(); ++k) {
            if (searched[k] != 0) {
                try {
                    splits[k] = nodes[first + k].searchPredictors(rows[k], orderOf(k),
                                                                  drawn[k]);
                } catch (...) {
                    errors[k] = std::current_exception();
                }
            }
            RowList().swap(rows[k]);
            ScalableVector<std::uint64_t>().swap(drawn[k]);
        }
    };
    {
        // Ends before the errors are read: its end is where the bodies'
        // writes are told to the thread sanitizer.
        tbb::task_group_context context;
        const ForkJoinBody<decltype(searchRange)> told(searchRange);
        tbb::parallel_for(tbb::blocked_range<std::uint64_t>(0, count, 1), told, context);
    }
    for (const std::exception_ptr& error : errors) {
        if (error) {
            std::rethrow_exception(error);
        }
    }
    return splits;
}

template <class X, class Y, class W>
void Tree<X, Y, W>::grow(RowList rows) {
    if (settings.regressionCriterion != nullptr) {
        settings.RiskTolerance *=
            settings.regressionCriterion->parent(settings.y, settings.w, rows);
    }
    const std::uint64_t MaxSplits = settings.MaxSplits;
    const std::uint64_t Verbosity = settings.Verbosity;
    const std::uint64_t estimate =
        estimateNodeCount(rows.size(), settings.MinParent, settings.MinLeaf);

    // The kept order: each predictor sorted once here and partitioned at
    // every split, so that no node sorts. Its queue of node segments runs
    // beside the queue of row lists.
    std::optional<SortedSegments<X>> sorted;
    std::deque<NodeSegment> segments;
    std::optional<ResponseSource<Y, W>> responses;
    if (settings.keepOrder && MaxSplits > 0 && SortedSegments<X>::fits(settings.rowCount)) {
        sorted.emplace(settings.x, settings.rowCount, settings.predictorCount, rows);
        segments.push_back(sorted->root());
        responses.emplace(settings.y, settings.w, settings.rowCount, rows,
                          settings.classificationCriterion != nullptr);
        settings.responses = &*responses;
    }
    NodeType prototype = makePrototype();
    prototype.initNode(rows);
    // The vector is planned at `length` nodes, but a node is only built when
    // it is counted: spare entries would be copies of the prototype that
    // nobody reads, so they stay unbuilt capacity.
    std::uint64_t length = estimate;
    nodes.clear();
    nodes.reserve(length);
    nodes.push_back(prototype);
    std::deque<RowList> queue;
    queue.push_back(std::move(rows));

    std::uint64_t layer = 0;
    std::uint64_t nextNode = 0;
    std::uint64_t totalSplits = 0;
    std::uint64_t layerSize = 1;
    while (MaxSplits > totalSplits) {
        ScalableVector<std::uint64_t> foundNodes;
        ScalableVector<SplitRows> foundRows;
        ScalableVector<SplitCandidate<W>> candidates;
        ScalableVector<NodeSegment> foundSegments;
        foundNodes.reserve(layerSize);
        foundRows.reserve(layerSize);
        candidates.reserve(layerSize);
        if (Verbosity != 0) {
            calyxPrintf("\nProcessing layer %i with maximal number of splits %i...\n", layer,
                        layerSize);
        }
        ScalableVector<RowList> layerRows(layerSize);
        ScalableVector<NodeSegment> layerSegments(sorted ? layerSize : 0);
        for (std::uint64_t k = 0; k < layerSize; ++k) {
            layerRows[k] = std::move(queue.front());
            queue.pop_front();
            if (sorted) {
                layerSegments[k] = std::move(segments.front());
                segments.pop_front();
            }
        }
        ScalableVector<SplitRows> splits =
            searchLayer(nextNode, layerRows, layerSegments, sorted ? &*sorted : nullptr);
        for (std::uint64_t k = 0; k < layerSize; ++k) {
            SplitRows& split = splits[k];
            // A split with one empty side gives the node no children,
            // whatever its fields say.
            if (!split.left.empty() && !split.right.empty()) {
                candidates.push_back({foundRows.size(), nodes[nextNode + k].Gain});
                foundNodes.push_back(nextNode + k);
                foundRows.push_back(std::move(split));
                if (sorted) {
                    foundSegments.push_back(std::move(layerSegments[k]));
                }
            }
        }
        const std::uint64_t found = candidates.size();
        if (Verbosity != 0) {
            calyxPrintf("    Found %i split candidates.\n", found);
        }
        std::uint64_t keep = MaxSplits - totalSplits;
        if (keep >= found) {
            keep = found;
        } else {
            if (Verbosity != 0) {
                calyxPrintf("    Will keep only %i splits.\n", keep);
            }
            SplitCandidate<W>* first = candidates.data();
            GainSelection<W>::select(first, first + keep, first + found);
            for (std::uint64_t k = keep; k < found; ++k) {
                const std::uint64_t node = foundNodes[candidates[k].index];
                if (Verbosity > 1) {
                    calyxPrintf("Unsplitting node %i.\n", node);
                }
                nodes[node].unsplit();
            }
            // Survivors back in node order, so children follow the layer's order.
            std::sort(first, first + keep,
                      [](const auto& a, const auto& b) { return a.index < b.index; });
        }
        ScalableVector<NodeSegment> childSegments(sorted ? 2 * keep : 0);
        if (sorted) {
            ScalableVector<SegmentSplit> parts(keep);
            for (std::uint64_t k = 0; k < keep; ++k) {
                const std::uint64_t f = candidates[k].index;
                parts[k] = {&foundSegments[f], &foundRows[f].left, &foundRows[f].right,
                            &childSegments[2 * k], &childSegments[2 * k + 1]};
            }
            sorted->split(parts);
        }
        for (std::uint64_t k = 0; k < keep; ++k) {
            const std::uint64_t p = foundNodes[candidates[k].index];
            SplitRows& split = foundRows[candidates[k].index];
            const std::uint64_t c = nodes.size();
            if (c + 2 > length) {
                length += std::max<std::uint64_t>(c + 2 - length, length);
                nodes.reserve(length);
            }
            nodes.push_back(prototype);
            nodes.push_back(prototype);
            nodes[p].leftChild = c;
            nodes[p].rightChild = c + 1;
            nodes[c].id = c;
            nodes[c + 1].id = c + 1;
            nodes[c].parent = static_cast<std::int64_t>(p);
            nodes[c + 1].parent = static_cast<std::int64_t>(p);
            nodes[c].initNode(split.left);
            nodes[c + 1].initNode(split.right);
            // The lists are not needed here any more: they move to the queue.
            queue.push_back(std::move(split.left));
            queue.push_back(std::move(split.right));
            if (sorted) {
                segments.push_back(std::move(childSegments[2 * k]));
                segments.push_back(std::move(childSegments[2 * k + 1]));
            }
        }
        totalSplits += keep;
        ++layer;
        nextNode += layerSize;
        layerSize = keep * 2;
        if (layerSize == 0) {
            break;
        }
    }
}

}  // namespace arbolin
