// Choosing the splits of a layer that the budget keeps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

namespace arbolin {

template <class W>
struct SplitCandidate {
    std::uint64_t index;  // position in the layer's tables of found splits
    W gain;
};

// Moves the `nth` candidates of largest gain to the front of [first, last),
// in the manner of an introspective selection. Equal gains are not ordered,
// so which of them survive depends on every swap below: the steps are kept
// exactly as they are.
template <class W>
class GainSelection {
public:
    using Candidate = SplitCandidate<W>;

    static void select(Candidate* first, Candidate* nth, Candidate* last) {
        if (first == last || nth == last) {
            return;
        }
        std::size_t depthLimit = 2 * floorLog2(static_cast<std::size_t>(last - first));
        while (last - first > 3) {
            if (depthLimit == 0) {
                heapSelect(first, nth + 1, last);
                std::swap(*first, *nth);
                return;
            }
            --depthLimit;
            Candidate* cut = partitionAroundMedian(first, last);
            if (cut <= nth) {
                first = cut;
            } else {
                last = cut;
            }
        }
        insertionSort(first, last);
    }

private:
    // "a before b": strictly larger gain.
    static bool before(const Candidate& a, const Candidate& b) { return a.gain > b.gain; }

    static std::size_t floorLog2(std::size_t n) {
        std::size_t k = 0;
        while (n >>= 1) {
            ++k;
        }
        return k;
    }

    static void moveMedianToFirst(Candidate* result, Candidate* a, Candidate* b, Candidate* c) {
        if (before(*a, *b)) {
            if (before(*b, *c)) {
                std::swap(*result, *b);
            } else if (before(*a, *c)) {
                std::swap(*result, *c);
            } else {
                std::swap(*result, *a);
            }
        } else if (before(*a, *c)) {
            std::swap(*result, *a);
        } else if (before(*b, *c)) {
            std::swap(*result, *c);
        } else {
            std::swap(*result, *b);
        }
    }

    static Candidate* partitionAroundMedian(Candidate* first, Candidate* last) {
        Candidate* mid = first + (last - first) / 2;
        moveMedianToFirst(first, first + 1, mid, last - 1);
        const Candidate* pivot = first;
        Candidate* lo = first + 1;
        Candidate* hi = last;
        while (true) {
            while (before(*lo, *pivot)) {
                ++lo;
            }
            --hi;
            while (before(*pivot, *hi)) {
                --hi;
            }
            if (!(lo < hi)) {
                return lo;
            }
            std::swap(*lo, *hi);
            ++lo;
        }
    }

    static void insertionSort(Candidate* first, Candidate* last) {
        if (first == last) {
            return;
        }
        for (Candidate* i = first + 1; i != last; ++i) {
            Candidate value = *i;
            if (before(value, *first)) {
                for (Candidate* j = i; j != first; --j) {
                    *j = *(j - 1);
                }
                *first = value;
            } else {
                Candidate* hole = i;
                while (before(value, *(hole - 1))) {
                    *hole = *(hole - 1);
                    --hole;
                }
                *hole = value;
            }
        }
    }

    // Heap whose top is its "last" entry in the order, i.e. the smallest gain.
    static void adjustHeap(Candidate* first, std::ptrdiff_t hole, std::ptrdiff_t len,
                           Candidate value) {
        const std::ptrdiff_t top = hole;
        std::ptrdiff_t child = hole;
        while (child < (len - 1) / 2) {
            child = 2 * (child + 1);
            if (before(first[child], first[child - 1])) {
                --child;
            }
            first[hole] = first[child];
            hole = child;
        }
        if ((len & 1) == 0 && child == (len - 2) / 2) {
            child = 2 * (child + 1);
            first[hole] = first[child - 1];
            hole = child - 1;
        }
        std::ptrdiff_t parent = (hole - 1) / 2;
        while (hole > top && before(first[parent], value)) {
            first[hole] = first[parent];
            hole = parent;
            parent = (hole - 1) / 2;
        }
        first[hole] = value;
    }

    static void heapSelect(Candidate* first, Candidate* middle, Candidate* last) {
        const std::ptrdiff_t len = middle - first;
        if (len >= 2) {
            for (std::ptrdiff_t parent = (len - 2) / 2;; --parent) {
                adjustHeap(first, parent, len, first[parent]);
                if (parent == 0) {
                    break;
                }
            }
        }
        for (Candidate* i = middle; i < last; ++i) {
            if (before(*i, *first)) {
                Candidate value = *i;
                *i = *first;
                adjustHeap(first, 0, len, value);
            }
        }
    }
};

}  // namespace arbolin
