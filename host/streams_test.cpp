#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "host/numora_host.hpp"

namespace {

// The draw written out independently of the host: a partial Fisher-Yates
// shuffle of 1..n driven by the top 53 bits of each mt19937_64 output.
std::vector<double> referenceDraw(std::mt19937_64& g, std::uint64_t k, std::uint64_t n) {
    std::vector<std::uint64_t> a(n);
    std::iota(a.begin(), a.end(), std::uint64_t{1});
    std::vector<double> out;
    for (std::uint64_t i = 0; i < k; ++i) {
        const double u = static_cast<double>(g() >> 11) / 9007199254740992.0;  // 2^53
        const auto j = i + static_cast<std::uint64_t>(std::floor(u * static_cast<double>(n - i)));
        std::swap(a[i], a[j]);
        out.push_back(static_cast<double>(a[i]));
    }
    return out;
}

std::vector<double> draw(lotstream::Stream* s, std::uint64_t k, std::uint64_t n) {
    std::vector<double> out(k);
    lotstream::randkpermFcn(s, out.data(), k, static_cast<double>(n));
    return out;
}

lotstream::Stream* streamOf(std::uint64_t id) {
    auto* table = knownLotstreams();
    return table->deref(table->find(id));
}

TEST(Randkperm, DefaultStreamFirstDrawsByHand) {
    numora::resetDefaultStream();
    // mt19937_64(5489) starts 14514284786278117030, 4620546740167642908,
    // 13109570281517897720: u = 0.7868, 0.2505, 0.7107, so j = 7, 1 + 2, 2 + 5.
    // 1..10 -> swap(0,7) -> 8; swap(1,3) -> 4; swap(2,7) -> 1.
    EXPECT_EQ(draw(lotGetDefaultStream().stream, 3, 10), (std::vector<double>{8, 4, 1}));
}

TEST(Randkperm, MatchesIndependentReferenceAcrossCalls) {
    numora::resetDefaultStream(5489);
    std::mt19937_64 g(5489);
    lotstream::Stream* s = lotGetDefaultStream().stream;
    EXPECT_EQ(draw(s, 5, 10), referenceDraw(g, 5, 10));
    EXPECT_EQ(draw(s, 20, 1000), referenceDraw(g, 20, 1000));  // continues the stream
    EXPECT_EQ(draw(s, 1, 1), referenceDraw(g, 1, 1));
}

TEST(Randkperm, DistinctAndInRange) {
    const std::uint64_t id = numora::createStream(7);
    const auto out = draw(streamOf(id), 7, 50);
    std::set<double> seen(out.begin(), out.end());
    EXPECT_EQ(seen.size(), 7u);
    for (double v : out) {
        EXPECT_GE(v, 1.0);
        EXPECT_LE(v, 50.0);
        EXPECT_EQ(v, std::floor(v));
    }
    numora::destroyStream(id);
}

TEST(Randkperm, FullDrawIsAPermutation) {
    const std::uint64_t id = numora::createStream(11);
    auto out = draw(streamOf(id), 12, 12);
    std::sort(out.begin(), out.end());
    std::vector<double> expected(12);
    std::iota(expected.begin(), expected.end(), 1.0);
    EXPECT_EQ(out, expected);
    numora::destroyStream(id);
}

TEST(Randkperm, SameSeedSameDraws) {
    const std::uint64_t a = numora::createStream(42);
    const std::uint64_t b = numora::createStream(42);
    const std::uint64_t c = numora::createStream(43);
    EXPECT_NE(a, b);
    const auto first = draw(streamOf(a), 10, 100);
    EXPECT_EQ(first, draw(streamOf(b), 10, 100));
    EXPECT_NE(first, draw(streamOf(c), 10, 100));
    for (auto id : {a, b, c}) numora::destroyStream(id);
}

TEST(Randkperm, NullStreamRaisesNullResource) {
    double out[1];
    try {
        lotstream::randkpermFcn(nullptr, out, 1, 5.0);
        FAIL() << "no exception";
    } catch (const vellum::contextmgr::NullResource& e) {
        EXPECT_EQ(e.identifier(), "vellum:contextmgr:null");
        EXPECT_STREQ(e.what(), "Unable to access null resource");
    }
}

TEST(Randkperm, MoreDrawsThanValuesIsAnError) {
    double out[4];
    const std::uint64_t id = numora::createStream(1);
    EXPECT_THROW(lotstream::randkpermFcn(streamOf(id), out, 4, 3.0), numora::Exception);
    numora::destroyStream(id);
}

TEST(StreamTable, StaleHandleDerefsToNull) {
    auto* table = knownLotstreams();
    const std::uint64_t id = numora::createStream(3);
    ASSERT_NE(id, 0u);
    const auto handle = table->find(id);
    EXPECT_NE(table->deref(handle), nullptr);
    numora::destroyStream(id);
    EXPECT_EQ(table->deref(handle), nullptr);
    EXPECT_EQ(table->deref(table->find(id)), nullptr);
    EXPECT_EQ(table->deref(table->find(0)), nullptr);
    // A handle of the right number but a made-up generation is refused too.
    const std::uint64_t live = numora::createStream(3);
    auto forged = table->find(live);
    forged.generation += 1000;
    EXPECT_EQ(table->deref(forged), nullptr);
    numora::destroyStream(live);
}

TEST(StreamTable, DefaultStreamHandleIsComplete) {
    const StreamHandle h = lotGetDefaultStream();
    EXPECT_EQ(h.table, knownLotstreams());
    EXPECT_NE(h.handle.id, 0u);
    ASSERT_NE(h.stream, nullptr);
    EXPECT_EQ(h.table->deref(h.handle), h.stream);
    numora::destroyStream(h.handle.id);  // refused: the default stream stays
    numora::resetDefaultStream(99);      // reseeded in place
    EXPECT_EQ(lotGetDefaultStream().stream, h.stream);
    numora::resetDefaultStream();
}

TEST(StreamTable, RaiseNullResourceKeepsItsType) {
    EXPECT_THROW(vellum::contextmgr::raiseNullResource(), vellum::contextmgr::NullResource);
}

TEST(StreamObject, CarriesItsStreamId) {
    const std::uint64_t id = numora::createStream(5);
    numora::ArrayPtr object(numora::createStreamObject(id));
    EXPECT_EQ(cxGetClassID(object.get()), cxOBJECT_CLASS);
    EXPECT_EQ(numora::cxGetObjectClassName(object.get()), "RandStream");
    numora::ArrayPtr sid(cxGetProperty(object.get(), 0, "StreamID"));
    ASSERT_NE(sid, nullptr);
    EXPECT_EQ(cxGetClassID(sid.get()), cxUINT64_CLASS);
    EXPECT_EQ(cxGetNumberOfElements(sid.get()), 1u);
    EXPECT_EQ(*static_cast<std::uint64_t*>(cxGetData(sid.get())), id);

    // The number leads back to a stream seeded as asked.
    std::mt19937_64 g(5);
    EXPECT_EQ(draw(streamOf(id), 4, 9), referenceDraw(g, 4, 9));
    numora::destroyStream(id);
}

}  // namespace
