// Shared value types of the tree logic.
#pragma once

#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include <oneapi/tbb/scalable_allocator.h>

#include "core/tree_allocator.hpp"

namespace arbolin {

// Row lists and class vectors come from the tree's allocator: many threads
// allocate them at once, and large ones go back to the system when freed.
template <class T>
using ScalableVector = std::vector<T, TreeAllocator<T>>;

// Scratch that tasks take and give back again and again, however large:
// the scalable allocator keeps it for the next task, where a mapping of
// its own would be faulted in afresh each time.
template <class T>
using PooledVector = std::vector<T, tbb::scalable_allocator<T>>;

// 0-based row numbers of X.
using RowList = ScalableVector<std::uint64_t>;

// The rows of the two children, left then right; both empty for a leaf.
struct SplitRows {
    RowList left;
    RowList right;
};

// The sum of a list from zero, in list order: the order is part of every
// result.
template <class List>
typename List::value_type sumInOrder(const List& list) {
    typename List::value_type sum = 0;
    for (const auto& v : list) {
        sum += v;
    }
    return sum;
}

// Walks through a row list jump through the data arrays: fetch the value
// of the row some steps ahead of position i (of n). `mask` keeps the row
// number of an entry that carries other bits beside it.
template <class T, std::size_t distance = 16, class Index = std::uint64_t>
inline void prefetchAhead(const T* data, const Index* rows, std::size_t i, std::size_t n,
                          Index mask = static_cast<Index>(~Index{0})) {
    if (i + distance < n) {
        __builtin_prefetch(data + (rows[i + distance] & mask));
    }
}

// A row's response and weight side by side: a scan that reaches rows in
// the order of some predictor fetches both with one memory access.
template <class Y, class W>
struct ResponseWeight {
    Y y;
    W w;
};

// The value-to-count conversion used for scalars, rows and classes: truncate
// toward zero; values of 2^63 and above keep their top bit.
// NaN and values out of range give the processor's "indefinite integer",
// the lowest int64, instead of undefined behaviour.
inline std::int64_t truncateToInt64(double v) {
    constexpr double twoTo63 = 9223372036854775808.0;
    if (v < twoTo63 && v >= -twoTo63) {
        return static_cast<std::int64_t>(v);
    }
    return std::numeric_limits<std::int64_t>::min();
}

inline std::uint64_t toCount(double v) {
    constexpr double twoTo63 = 9223372036854775808.0;
    if (v < twoTo63) {
        return static_cast<std::uint64_t>(truncateToInt64(v));
    }
    return static_cast<std::uint64_t>(truncateToInt64(v - twoTo63)) | (std::uint64_t{1} << 63);
}

// The class of a row: its response, a class number held as a real value.
template <class Y>
std::uint64_t classOf(Y response) {
    return toCount(static_cast<double>(response));
}

// The caller's whole-number and yes/no settings of one tree, as the entry
// point decodes them; the driver's arguments and the tree's settings both
// hold them, so they are copied in one step.
struct GrowthSettings {
    std::uint64_t MinLeaf = 0;
    std::uint64_t MinParent = 0;
    std::uint64_t MaxSplits = 0;
    std::uint64_t SampleSize = 0;
    std::uint64_t SurrogateCount = 0;
    std::uint64_t MaxCat = 0;
    std::uint64_t AlgCat = 0;
    bool CurvatureFlag = false;
    bool InteractionFlag = false;
    bool ChisqFlag = false;
    std::uint64_t Verbosity = 0;
};

}  // namespace arbolin
