// Large blocks of the tree's vectors are mapped on their own, and the kept
// order gives pages back: neither may lose or move an entry that is still
// in use.
#include <unistd.h>

#include <cstdint>
#include <numeric>

#include <gtest/gtest.h>

#include "columns/page_array.hpp"
#include "core/types.hpp"

namespace arbolin {
namespace {

TEST(TreeAllocator, VectorsKeepTheirEntriesAcrossTheMappedSize) {
    // Grows from pooled blocks into mapped ones (1 MB is 131,072 entries)
    // and shrinks back by copying.
    RowList rows;
    for (std::uint64_t r = 0; r < 400000; ++r) {
        rows.push_back(r * 3);
    }
    RowList copy = rows;
    ASSERT_EQ(copy.size(), 400000u);
    for (std::uint64_t r = 0; r < copy.size(); ++r) {
        ASSERT_EQ(copy[r], r * 3);
    }
    RowList small(rows.begin(), rows.begin() + 1000);
    rows = RowList();
    EXPECT_EQ(small.back(), 999u * 3);
    ScalableVector<double> zeros(300000);
    EXPECT_EQ(std::accumulate(zeros.begin(), zeros.end(), 0.0), 0.0);
}

TEST(PageArray, ReleaseZeroesOnlyWholePagesInside) {
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / sizeof(std::uint32_t);
    const std::size_t n = 6 * page;
    PageArray<std::uint32_t> a(n);
    for (std::size_t i = 0; i < n; ++i) {
        ASSERT_EQ(a.data()[i], 0u);  // fresh pages read as zero
        a.data()[i] = static_cast<std::uint32_t>(i + 1);
    }
    // From the middle of page 1 to the middle of page 4: pages 2 and 3 go.
    const std::size_t first = page + page / 2;
    const std::size_t last = 4 * page + 7;
    a.release(first, last);
    for (std::size_t i = 0; i < n; ++i) {
        const bool gone = i >= 2 * page && i < 4 * page;
        ASSERT_EQ(a.data()[i], gone ? 0u : static_cast<std::uint32_t>(i + 1)) << "entry " << i;
    }
    a.release(3, 3);  // nothing
    a.release(10, page - 1);  // inside one page: nothing
    EXPECT_EQ(a.data()[10], 11u);
}

}  // namespace
}  // namespace arbolin
