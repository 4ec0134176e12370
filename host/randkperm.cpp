// k distinct integers from 1..n: the first k steps of a Fisher-Yates shuffle.
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "host/raise.hpp"
#include "host/stream.hpp"

namespace lotstream {

namespace {

// A double in [0, 1) from the top 53 bits of one draw.
double uniform(Stream& stream) {
    return static_cast<double>(stream.next() >> 11) * 0x1.0p-53;
}

[[noreturn]] void badDraw(std::uint64_t k, double n) {
    char count[32];
    std::snprintf(count, sizeof count, "%.17g", n);
    numora::detail::raise("numora:lotstream", "badDraw",
                          {static_cast<std::int64_t>(k), std::string(count)});
}

}  // namespace

void randkpermFcn(Stream* stream, double* out, std::uint64_t k, double n) {
    if (stream == nullptr) vellum::contextmgr::raiseNullResource();
    if (!(n >= 0.0 && n <= 0x1.0p53) || n != std::floor(n)) badDraw(k, n);
    const auto count = static_cast<std::uint64_t>(n);
    if (k > count) badDraw(k, n);

    // n is a number of predictors, so a full table costs no more than the data.
    std::vector<std::uint64_t> a(count);
    for (std::uint64_t i = 0; i < count; ++i) a[i] = i + 1;
    for (std::uint64_t i = 0; i < k; ++i) {
        const double u = uniform(*stream);
        const double offset = std::floor(u * static_cast<double>(count - i));
        std::uint64_t j = i + static_cast<std::uint64_t>(offset);
        if (j >= count) j = count - 1;  // rounding of u * (n - i) up to n - i
        std::swap(a[i], a[j]);
        out[i] = static_cast<double>(a[i]);
    }
}

}  // namespace lotstream
