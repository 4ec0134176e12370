// Orders row numbers by the value of one predictor, fast. Ties may end in
// any order: nothing downstream depends on it.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include "core/types.hpp"

namespace arbolin {

namespace value_sort_detail {

// An unsigned key whose order is the order of the (non-NaN) value.
template <class X>
auto sortableKey(X v) {
    using Bits = std::conditional_t<sizeof(X) == 8, std::uint64_t, std::uint32_t>;
    const Bits u = std::bit_cast<Bits>(v);
    constexpr Bits sign = Bits{1} << (sizeof(Bits) * 8 - 1);
    return (u & sign) ? static_cast<Bits>(~u) : static_cast<Bits>(u | sign);
}

template <class Key>
struct Entry {
    Key key;
    std::uint64_t row;
};

template <class Key>
Key valueBits(Key key) {
    constexpr Key sign = Key{1} << (sizeof(Key) * 8 - 1);
    return (key & sign) ? static_cast<Key>(key & ~sign) : static_cast<Key>(~key);
}

template <class X, class Key>
X valueFromKey(Key key) {
    return std::bit_cast<X>(valueBits(key));
}

// Least-significant-digit radix sort on digits of `bits` bits, skipping the
// digits that every key shares (the high bits of values of one magnitude).
template <int bits, class Key>
void radixSort(ScalableVector<Entry<Key>>& entries, ScalableVector<Entry<Key>>& scratch) {
    constexpr int digits = (sizeof(Key) * 8 + bits - 1) / bits;
    constexpr Key mask = (Key{1} << bits) - 1;
    std::vector<std::array<std::uint64_t, 1 << bits>> counts(digits);
    for (const auto& e : entries) {
        for (int d = 0; d < digits; ++d) {
            ++counts[d][(e.key >> (bits * d)) & mask];
        }
    }
    const std::uint64_t n = entries.size();
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

}  // namespace value_sort_detail

// Sorts the rows of [first, last) by x and writes their values, in the new
// order, to `values`: the scans that follow read them in sequence instead of
// jumping through the column.
template <class X>
void sortRowsByValue(const X* x, std::uint64_t* first, std::uint64_t* last,
                     ScalableVector<X>& values) {
    using namespace value_sort_detail;
    const auto n = static_cast<std::uint64_t>(last - first);
    values.resize(n);
    if (n < 32) {
        std::sort(first, last, [x](std::uint64_t a, std::uint64_t b) { return x[a] < x[b]; });
        for (std::uint64_t i = 0; i < n; ++i) {
            values[i] = x[first[i]];
        }
        return;
    }
    using Key = decltype(sortableKey(X{}));
    ScalableVector<Entry<Key>> entries(n);
    for (std::uint64_t i = 0; i < n; ++i) {
        prefetchAhead(x, first, i, n);
        entries[i] = {sortableKey(x[first[i]]), first[i]};
    }
    if (n < 1024) {
        std::sort(entries.begin(), entries.end(),
                  [](const auto& a, const auto& b) { return a.key < b.key; });
    } else {
        ScalableVector<Entry<Key>> scratch(n);
        radixSort<11>(entries, scratch);
    }
    for (std::uint64_t i = 0; i < n; ++i) {
        first[i] = entries[i].row;
        values[i] = valueFromKey<X>(entries[i].key);
    }
}

}  // namespace arbolin
