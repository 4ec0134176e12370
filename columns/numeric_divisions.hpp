// The short list of positions at which a numeric cut is worth evaluating:
// boundary points where the response changes, between values that are
// really different numbers, leaving at least minLeaf rows on each side.
#pragma once

#include "columns/indexed_column.hpp"
#include "columns/ties.hpp"

namespace arbolin {

// Whether the response changes between neighbours from position `from`
// to position `to`.
template <class Column>
bool responseChanges(const Column& column, std::uint64_t from, std::uint64_t to) {
    for (std::uint64_t k = from; k < to; ++k) {
        if (!(column.responseAt(k) == column.responseAt(k + 1))) {
            return true;
        }
    }
    return false;
}

// Collects the divisions in divisions_.
struct DivisionList {
    ScalableVector<std::uint64_t>& list;

    void add(std::uint64_t d) { list.push_back(d); }
    bool empty() const { return list.empty(); }
    std::uint64_t back() const { return list.back(); }
    std::uint64_t size() const { return list.size(); }
};

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::divideNumeric() {
    DivisionList list{divisions_};
    walkDivisions(list);
}

// Hands each division, from low to high, to `sink`, which also tells the
// count and the last one.
template <class X, class Y, class W>
template <class Sink>
void IndexedColumn<X, Y, W>::walkDivisions(Sink& sink) {
    if (walksBySteps()) {
        walkDivisionsBySteps(sink);
        return;
    }
    const std::uint64_t n = presentSize();
    const std::uint64_t m = minLeaf_;
    auto x = [this](std::uint64_t p) { return valueAt(p); };
    auto y = [this](std::uint64_t p) { return responseAt(p); };

    // Whole range: the outer positions are taken as they stand, also
    // under the partial sort.
    if (isTied(x(0), x(n - 1))) {
        return;
    }

    // First block: a response change among pairs (0,1) .. (m-1,m).
    const bool deltaclass = responseChanges(*this, 0, m);

    std::uint64_t i;
    std::uint64_t anchor;
    X anchorX;
    X shownLow;  // the pair compared last, for the trace
    X shownHigh;
    if (deltaclass) {
        // The first legal cut at or above the first block is a boundary.
        const X r = x(m - 1);
        std::uint64_t p = m;
        while (p <= n - m && isTied(x(p), r)) {
            ++p;
        }
        if (p > n - m) {
            return;
        }
        sink.add(p - 1);
        i = p;
        anchor = p;
        anchorX = x(p);
        shownLow = r;
        shownHigh = x(p);
    } else {
        i = m;
        anchor = m - 1;
        anchorX = x(m - 1);
        shownLow = anchorX;
        shownHigh = anchorX;
    }
    if (verbosity_ > 3) {
        // The first block gives one division at most.
        calyxPrintf("deltaclass after 1st minleaf = %i  divisions:", std::int64_t{deltaclass});
        if (!sink.empty()) {
            calyxPrintf("  %i", sink.back());
        }
        calyxPrintf("\n");
    }

    // Middle: a cut at each response change; inside a run of tied values
    // the cut goes below the run, or waits for the run's end. Each value is
    // read once, through its row, ahead of its use: a miss per row in data
    // larger than the caches. 24 rows ahead measured best at 1M x 20 (64
    // was 4% slower for classes, 9% for regression; 10 was 13% slower).
    bool pending = false;
    const std::uint64_t* rows = lent_ ? nullptr : present_->data();
    constexpr std::size_t ahead = 24;
    X xi = i != n - m ? x(i) : X(0);
    while (i != n - m) {
        const std::uint64_t next = i + 1;
        if (lent_) {
            prefetchAhead<X, ahead, std::uint32_t>(x_, lentEntries_, next, n,
                                                   SortedSegments<X>::kRowMask);
        } else {
            prefetchAhead<X, ahead>(x_, rows, next, n);
            if (!ordered_) {
                prefetchAhead(y_, rows, next, n);
            }
        }
        if (verbosity_ > 3) {
            calyxPrintf("  i-1=%i  i0=%i  i+1=%i  x-1=%g  x0=%g  x+1=%g  y=%g  y+1=%g  Ndiv=%i\n",
                        anchor, i, next, static_cast<double>(anchorX),
                        static_cast<double>(shownLow), static_cast<double>(shownHigh),
                        static_cast<double>(y(i)), static_cast<double>(y(next)), sink.size());
        }
        const X xn = lent_ ? x_[lentRowAt(next)] : x_[rows[next]];
        shownLow = xi;
        shownHigh = xn;
        if (!pending && y(i) == y(next)) {
            if (!isTied(xi, xn)) {
                anchorX = xi;
                anchor = i;
            }
            i = next;
            xi = xn;
            continue;
        }
        std::uint64_t division;
        if (!isTied(xi, xn)) {
            division = i;
        } else if (!isTied(anchorX, xn)) {
            division = anchor;
        } else {
            pending = true;
            i = next;
            xi = xn;
            continue;
        }
        sink.add(division);
        anchor = next;
        anchorX = xn;
        pending = false;
        i = next;
        xi = xn;
    }

    // Last block: a change there gets the highest legal cut, mirrored from
    // the first block but bounded below only by the last division.
    if (responseChanges(*this, n - m, n - 1)) {
        const std::uint64_t low = sink.empty() ? 0 : sink.back() + 1;
        const X r = x(n - m);
        std::uint64_t q = n - m;
        while (isTied(x(q), r)) {
            if (q == low) {
                return;
            }
            --q;
        }
        sink.add(q);
    }
    if (verbosity_ > 3) {
        calyxPrintf("  Ndiv at exit = %i", sink.size());
        if (!sink.empty()) {
            calyxPrintf("  Last division = %i", sink.back());
        }
        calyxPrintf("\n");
    }
}

// The same walk, the same divisions, with each comparison of two values
// answered by the highest step between them: Equal, tied; Far, not tied;
// Near, read the two values and compare them. Most steps need no value.
template <class X, class Y, class W>
template <class Sink>
void IndexedColumn<X, Y, W>::walkDivisionsBySteps(Sink& sink) {
    using Order = SortedSegments<X>;
    const std::uint64_t n = presentSize();
    const std::uint64_t m = minLeaf_;
    const std::uint32_t* entries = lentEntries_;
    auto x = [this](std::uint64_t p) { return valueAt(p); };
    auto y = [this](std::uint64_t p) { return responseAt(p); };
    // The step from position p - 1 to p.
    auto step = [entries](std::uint64_t p) { return Order::stepOf(entries[p]); };
    // Positions a and b, with `over` the highest step from a to b.
    auto tied = [&x](Step over, std::uint64_t a, std::uint64_t b) {
        if (over == Step::Near) [[unlikely]] {
            return isTied(x(a), x(b));
        }
        return over == Step::Equal;
    };

    // Whole range: rarely is the first step not already Far.
    Step whole = Step::Equal;
    for (std::uint64_t p = 1; p < n && whole != Step::Far; ++p) {
        whole = highest(whole, step(p));
    }
    if (tied(whole, 0, n - 1)) {
        return;
    }
    const bool deltaclass = responseChanges(*this, 0, m);

    std::uint64_t i;
    std::uint64_t anchor;
    Step sinceAnchor;  // the highest step from anchor to i
    if (deltaclass) {
        std::uint64_t p = m;
        Step sinceLow = Step::Equal;  // from m - 1 to p
        while (p <= n - m) {
            sinceLow = highest(sinceLow, step(p));
            if (!tied(sinceLow, m - 1, p)) {
                break;
            }
            ++p;
        }
        if (p > n - m) {
            return;
        }
        sink.add(p - 1);
        i = p;
        anchor = p;
        sinceAnchor = Step::Equal;
    } else {
        i = m;
        anchor = m - 1;
        sinceAnchor = step(m);
    }

    bool pending = false;
    while (i != n - m) {
        const std::uint64_t next = i + 1;
        const Step s = step(next);
        if (!pending && y(i) == y(next)) {
            if (!tied(s, i, next)) {
                anchor = i;
                sinceAnchor = s;
            } else {
                sinceAnchor = highest(sinceAnchor, s);
            }
            i = next;
            continue;
        }
        std::uint64_t division;
        if (!tied(s, i, next)) {
            division = i;
        } else if (sinceAnchor = highest(sinceAnchor, s); !tied(sinceAnchor, anchor, next)) {
            division = anchor;
        } else {
            pending = true;
            i = next;
            continue;
        }
        sink.add(division);
        anchor = next;
        sinceAnchor = Step::Equal;
        pending = false;
        i = next;
    }

    if (responseChanges(*this, n - m, n - 1)) {
        const std::uint64_t low = sink.empty() ? 0 : sink.back() + 1;
        std::uint64_t q = n - m;
        Step sinceHigh = Step::Equal;  // from q to n - m
        while (tied(sinceHigh, q, n - m)) {
            if (q == low) {
                return;
            }
            sinceHigh = highest(sinceHigh, step(q));
            --q;
        }
        sink.add(q);
    }
}

}  // namespace arbolin
