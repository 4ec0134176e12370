// Orders rows by the value of one predictor. Rows of equal value may stand
// in any order as far as the search is concerned; here they always follow
// the row number, so that every way of reaching an order (a sort at the
// node, or a partition of the parent's order) gives the same one.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "core/types.hpp"

namespace arbolin {

// An unsigned key whose order is the order of the (non-NaN) value; -0
// comes just before +0.
template <class X>
auto sortableKey(X v) {
    using Bits = std::conditional_t<sizeof(X) == 8, std::uint64_t, std::uint32_t>;
    const Bits u = std::bit_cast<Bits>(v);
    constexpr Bits sign = Bits{1} << (sizeof(Bits) * 8 - 1);
    return (u & sign) ? static_cast<Bits>(~u) : static_cast<Bits>(u | sign);
}

// The value back from its key.
template <class X, class Bits>
X valueOfKey(Bits key) {
    constexpr Bits sign = Bits{1} << (sizeof(Bits) * 8 - 1);
    return std::bit_cast<X>((key & sign) ? static_cast<Bits>(key ^ sign) : static_cast<Bits>(~key));
}

// Packed: with 32-bit rows an entry is 12 bytes, not 16, and the root's
// sorts of large data hold a quarter less.
template <class Key, class Index>
struct __attribute__((packed)) KeyedRow {
    Key key;
    Index row;
};

// Least-significant-digit radix sort on digits of `bits` bits, skipping the
// digits that every key shares (the high bits of values of one magnitude).
// Stable: entries of equal key keep their order.
template <int bits, class Key, class Index>
void radixSort(PooledVector<KeyedRow<Key, Index>>& entries,
               PooledVector<KeyedRow<Key, Index>>& scratch) {
    constexpr int digits = (sizeof(Key) * 8 + bits - 1) / bits;
    constexpr Key mask = (Key{1} << bits) - 1;
    std::vector<std::array<std::uint64_t, 1 << bits>> counts(digits);
    for (const auto& e : entries) {
        for (int d = 0; d < digits; ++d) {
            ++counts[d][(e.key >> (bits * d)) & mask];
        }
    }
    const std::uint64_t n = entries.size();
    scratch.resize(n);
    for (int d = 0; d < digits; ++d) {
        auto& count = counts[d];
        if (std::find(count.begin(), count.end(), n) != count.end()) {
            continue;  // one bucket holds everything: the pass would move nothing
        }
        std::uint64_t offset = 0;
        for (auto& c : count) {
            const std::uint64_t size = c;
            c = offset;
            offset += size;
        }
        for (const auto& e : entries) {
            scratch[count[(e.key >> (bits * d)) & mask]++] = e;
        }
        entries.swap(scratch);
    }
}

// Sorts the rows of [first, last), none of them NaN in x, by value and
// then row number. The column's own sort when no kept order serves it.
template <class X>
void sortByValueThenRow(const X* x, std::uint64_t* first, std::uint64_t* last) {
    std::sort(first, last, [x](std::uint64_t a, std::uint64_t b) {
        const auto ka = sortableKey(x[a]);
        const auto kb = sortableKey(x[b]);
        return ka < kb || (ka == kb && a < b);
    });
}

}  // namespace arbolin
