// Where a column's ordered copies of responses and weights come from. Each
// copy is gathered through row numbers, a cache miss per row and array read
// once the data outgrow the caches, so the tree reads as few and as small
// arrays as its data allow:
// - when every weight is the same number, the weight is written, not read;
// - when each class has one response value, a class is read as a code of
//   one byte (two beyond 256 classes), from an array small enough to stay
//   in cache, and looked up;
// - otherwise response and weight stand side by side, one read for both.
// Each form gives the copies the very values of the plain arrays.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "core/types.hpp"

namespace arbolin {

template <class Y, class W>
class ResponseSource {
public:
    // `rows`: the rows the tree will read, the root's.
    ResponseSource(const Y* y, const W* w, std::uint64_t rowCount, const RowList& rows,
                   bool classes)
        : y_(y), w_(w) {
        sameWeights_ = !rows.empty();
        if (sameWeights_) {
            weight_ = w[rows.front()];
            for (std::uint64_t r : rows) {
                if (std::memcmp(&w[r], &weight_, sizeof(W)) != 0) {
                    sameWeights_ = false;
                    break;
                }
            }
        }
        if (classes) {
            makeCodes(rowCount, rows);
            if (sameWeights_) {
                repeatedSums_.resize(rows.size() + 1);
                repeatedSums_[0] = W(0);
                for (std::size_t c = 1; c < repeatedSums_.size(); ++c) {
                    repeatedSums_[c] = repeatedSums_[c - 1] + weight_;
                }
            }
        }
        if (!sameWeights_ && codes_.empty()) {
            pairs_.resize(rowCount);
            for (std::uint64_t r : rows) {
                pairs_[r] = {y[r], w[r]};
            }
        }
    }

    ResponseSource(const ResponseSource&) = delete;
    ResponseSource& operator=(const ResponseSource&) = delete;

    // Copies y and w of rows[0..n) into yo and wo, in that order; with the
    // same weight everywhere, wo may be null and is not written. `mask`
    // keeps the row number of an entry that carries more.
    template <class Index>
    void gather(const Index* rows, std::size_t n, Y* yo, W* wo,
                Index mask = static_cast<Index>(~Index{0})) const {
        if (wo == nullptr) {
            gatherInto<false>(rows, n, yo, wo, mask);
        } else {
            gatherInto<true>(rows, n, yo, wo, mask);
        }
    }

    bool sameWeights() const { return sameWeights_; }
    // The weight of every row, when sameWeights().
    W weight() const { return weight_; }
    bool coded() const { return !codes_.empty() || !byteCodes_.empty(); }
    // In classification with one weight for every row: entry c holds c of
    // that weight added one by one from zero, the weight of a class with c
    // rows as any scan sums it. Else null.
    const W* repeatedSums() const { return repeatedSums_.empty() ? nullptr : repeatedSums_.data(); }

private:
    // Far ahead: each row is a miss in data larger than the caches.
    static constexpr std::size_t ahead = 64;

    template <bool WriteWeights, class Index>
    void gatherInto(const Index* rows, std::size_t n, Y* yo, W* wo, Index mask) const {
        if (!byteCodes_.empty()) {
            gatherCoded<WriteWeights>(byteCodes_.data(), rows, n, yo, wo, mask);
        } else if (!codes_.empty()) {
            gatherCoded<WriteWeights>(codes_.data(), rows, n, yo, wo, mask);
        } else if (sameWeights_) {
            for (std::size_t i = 0; i < n; ++i) {
                prefetchAhead<Y, ahead, Index>(y_, rows, i, n, mask);
                const std::uint64_t r = rows[i] & mask;
                yo[i] = y_[r];
                if constexpr (WriteWeights) {
                    wo[i] = weight_;
                }
            }
        } else {
            const ResponseWeight<Y, W>* pairs = pairs_.data();
            for (std::size_t i = 0; i < n; ++i) {
                prefetchAhead<ResponseWeight<Y, W>, ahead, Index>(pairs, rows, i, n, mask);
                const std::uint64_t r = rows[i] & mask;
                yo[i] = pairs[r].y;
                if constexpr (WriteWeights) {
                    wo[i] = pairs[r].w;
                }
            }
        }
    }

    template <bool WriteWeights, class Code, class Index>
    void gatherCoded(const Code* codes, const Index* rows, std::size_t n, Y* yo, W* wo,
                     Index mask) const {
        const Y* values = classValues_.data();
        auto copy = [&]<bool SameWeights>() {
            for (std::size_t i = 0; i < n; ++i) {
                prefetchAhead<Code, ahead, Index>(codes, rows, i, n, mask);
                if constexpr (!SameWeights) {
                    prefetchAhead<W, ahead, Index>(w_, rows, i, n, mask);
                }
                const std::uint64_t r = rows[i] & mask;
                yo[i] = values[codes[r]];
                if constexpr (WriteWeights) {
                    wo[i] = SameWeights ? weight_ : w_[r];
                }
            }
        };
        if (sameWeights_) {
            copy.template operator()<true>();
        } else {
            copy.template operator()<false>();
        }
    }

    // A code per row, the class number of its response, where every row of
    // a class holds the same bits (a NaN, or -0 beside +0, leaves the plain
    // arrays in force, so that comparisons of responses stay the same).
    void makeCodes(std::uint64_t rowCount, const RowList& rows) {
        constexpr std::uint64_t kMostCodes = std::numeric_limits<std::uint16_t>::max();
        ScalableVector<std::uint16_t> codes(rowCount, 0);
        ScalableVector<Y> values;
        ScalableVector<char> seen;
        for (std::uint64_t r : rows) {
            const Y v = y_[r];
            if (std::isnan(static_cast<double>(v)) || !(v >= Y(0)) ||
                !(static_cast<double>(v) < static_cast<double>(kMostCodes))) {
                return;
            }
            const std::uint64_t k = classOf(v);
            if (k >= values.size()) {
                values.resize(k + 1, Y(0));
                seen.resize(k + 1, 0);
            }
            if (seen[k] == 0) {
                values[k] = v;
                seen[k] = 1;
            } else if (std::memcmp(&values[k], &v, sizeof(Y)) != 0) {
                return;
            }
            codes[r] = static_cast<std::uint16_t>(k);
        }
        if (values.size() <= 256) {
            byteCodes_.assign(codes.begin(), codes.end());
        } else {
            codes_.swap(codes);
        }
        classValues_.swap(values);
    }

    const Y* y_;
    const W* w_;
    bool sameWeights_ = false;
    W weight_ = 0;
    ScalableVector<std::uint16_t> codes_;
    ScalableVector<std::uint8_t> byteCodes_;  // in place of codes_ up to 256 classes
    ScalableVector<Y> classValues_;
    ScalableVector<ResponseWeight<Y, W>> pairs_;
    ScalableVector<W> repeatedSums_;
};

}  // namespace arbolin
