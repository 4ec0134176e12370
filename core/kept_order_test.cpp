// Whole trees grown by different paths must agree bit for bit, through
// missing values, ties, a nominal predictor, weights and surrogates: the
// kept order of rows against a sort at every node, and the nodes of a layer
// searched at once against one after another, with predictors drawn from a
// stream as well.
#include <algorithm>
#include <bit>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/find_best_split.hpp"
#include "core/grow.hpp"
#include "core/stream_access.hpp"
#include "criteria/split_criteria_factory.hpp"
#include "host/numora_host.hpp"

namespace arbolin {
namespace {

struct Data {
    std::uint64_t n = 0;
    std::uint64_t d = 4;
    std::vector<double> x, y, w;
    bool isCat[4] = {false, false, true, false};
};

// Column 0 continuous, 1 rounded to tenths (many ties), 2 nominal codes,
// 3 in clusters of neighbouring numbers (ties that do not chain); NaN in
// all but the last; classes or a response from them. `infinity`: one
// value of column 0 is infinite, and its ties can no longer be told by the
// kept order's steps.
Data makeData(std::uint64_t n, bool regression, bool infinity = false) {
    std::mt19937_64 rng(11);
    std::normal_distribution<double> normal;
    std::uniform_real_distribution<double> uniform(0.5, 2.0);
    Data data;
    data.n = n;
    data.x.resize(n * data.d);
    for (std::uint64_t i = 0; i < n; ++i) {
        data.x[i] = normal(rng);
        data.x[n + i] = std::round(normal(rng) * 10) / 10;
        data.x[2 * n + i] = static_cast<double>(1 + rng() % 8);
        data.x[3 * n + i] = (std::round(normal(rng) * 20) + 0.5) / 20;  // never 0
        for (auto k = rng() % 4; k > 0; --k) {
            data.x[3 * n + i] = std::nextafter(data.x[3 * n + i], 10.0);
        }
        const double v = data.x[i] + 0.7 * std::fmod(data.x[2 * n + i], 3) + 0.5 * normal(rng);
        data.y.push_back(regression ? v : static_cast<double>((v > 0.3) + (v > 1.2)));
        data.w.push_back(uniform(rng));
        for (std::uint64_t j = 0; j < 3; ++j) {
            if (rng() % 20 == 0) data.x[j * n + i] = NAN;
        }
    }
    if (infinity) data.x[5] = INFINITY;
    return data;
}

using TreeD = Tree<double, double, double>;

struct Paths {
    bool keepOrder = true;
    bool nodesInParallel = true;
    std::uint64_t sampleSize = 0;  // 0: all predictors
};

std::unique_ptr<TreeD> grow(const Data& data, const Criteria<double, double>& criteria,
                            std::uint64_t surrogates, Paths paths) {
    TreeSettings<double, double, double> s;
    s.x = data.x.data();
    s.rowCount = data.n;
    s.predictorCount = data.d;
    s.y = data.y.data();
    s.w = data.w.data();
    s.isCat = data.isCat;
    s.classificationCriterion = criteria.classification.get();
    s.regressionCriterion = criteria.regression.get();
    s.classNumber = criteria.classification ? 3 : 1;
    s.MinLeaf = 3;
    s.MinParent = 10;
    s.MaxSplits = data.n - 1;
    s.SampleSize = paths.sampleSize == 0 ? data.d : paths.sampleSize;
    s.SurrogateCount = surrogates;
    s.MaxCat = 10;
    s.keepOrder = paths.keepOrder;
    s.nodesInParallel = paths.nodesInParallel;
    // The same seed for every tree, so that they draw the same predictors.
    const std::uint64_t id = numora::createStream(7);
    StreamHandle stream = lookUpStream(id);
    s.stream = &stream;
    auto tree = std::make_unique<TreeD>(s);
    RowList rows(data.n);
    for (std::uint64_t i = 0; i < data.n; ++i) rows[i] = i;
    tree->grow(rows);
    numora::destroyStream(id);
    return tree;
}

// Bits, so that NaN equals NaN and -0 differs from +0.
template <class List>
std::vector<std::uint64_t> bits(const List& values) {
    std::vector<std::uint64_t> out;
    for (const auto v : values) out.push_back(std::bit_cast<std::uint64_t>(double(v)));
    return out;
}

void expectSameTrees(const TreeD& a, const TreeD& b) {
    ASSERT_EQ(a.nodes.size(), b.nodes.size());
    for (std::size_t i = 0; i < a.nodes.size(); ++i) {
        const auto& p = a.nodes[i];
        const auto& q = b.nodes[i];
        SCOPED_TRACE("node " + std::to_string(i));
        EXPECT_EQ(p.NodeSize, q.NodeSize);
        EXPECT_EQ(p.leftChild, q.leftChild);
        EXPECT_EQ(p.CutVar, q.CutVar);
        EXPECT_EQ(p.HasUnroutedRows, q.HasUnroutedRows);
        EXPECT_EQ(bits(std::vector<double>{p.CutPoint, p.Gain, p.NodeValue, p.NodeProb,
                                           p.CorrectedNodeProb, p.NodeRisk}),
                  bits(std::vector<double>{q.CutPoint, q.Gain, q.NodeValue, q.NodeProb,
                                           q.CorrectedNodeProb, q.NodeRisk}));
        EXPECT_EQ(bits(p.ClassProb), bits(q.ClassProb));
        EXPECT_EQ(bits(p.detail().LeftLevels), bits(q.detail().LeftLevels));
        EXPECT_EQ(bits(p.detail().RightLevels), bits(q.detail().RightLevels));
        const auto& s = p.detail().surrogates;
        const auto& t = q.detail().surrogates;
        EXPECT_EQ(s.predictors, t.predictors);
        EXPECT_EQ(bits(s.cutPoints), bits(t.cutPoints));
        EXPECT_EQ(bits(s.associations), bits(t.associations));
        EXPECT_EQ(bits(s.gains), bits(t.gains));
    }
}

TEST(KeptOrder, GrowsTheTreeThatSortingAtEveryNodeGrows) {
    struct Case {
        const char* criterion;
        std::uint64_t surrogates;
        bool infinity = false;
        bool oneWeight = false;  // the kept order's scans then count class rows
    };
    for (const Case c : {Case{"gini", 0}, Case{"deviance", 2}, Case{"mse", 0}, Case{"mse", 3},
                         Case{"gini", 0, true}, Case{"mse", 0, true}, Case{"gini", 0, false, true},
                         Case{"deviance", 2, false, true}, Case{"mse", 0, false, true}}) {
        SCOPED_TRACE(std::string(c.criterion) + " with " + std::to_string(c.surrogates) +
                     " surrogates" + (c.infinity ? ", an infinite value" : "") +
                     (c.oneWeight ? ", one weight" : ""));
        const bool regression = std::string(c.criterion) == "mse";
        Data data = makeData(2500, regression, c.infinity);
        if (c.oneWeight) std::fill(data.w.begin(), data.w.end(), 1.0 / 2500);
        const auto criteria =
            SplitCriteriaFactory<double, double>::make(c.criterion, nullptr, "", "");
        const auto kept = grow(data, criteria, c.surrogates, {});
        const auto sorted = grow(data, criteria, c.surrogates, {.keepOrder = false});
        EXPECT_GT(kept->nodes.size(), 100u);
        expectSameTrees(*kept, *sorted);
    }
}

TEST(LayerSearch, NodesSearchedAtOnceGrowTheTreeOfANodeByNodePass) {
    struct Case {
        const char* criterion;
        std::uint64_t surrogates;
        std::uint64_t sampleSize;
    };
    for (const Case c : {Case{"gini", 0, 0}, Case{"gini", 0, 2}, Case{"deviance", 2, 3},
                         Case{"mse", 0, 0}, Case{"mse", 3, 2}}) {
        SCOPED_TRACE(std::string(c.criterion) + " with " + std::to_string(c.surrogates) +
                     " surrogates, " + std::to_string(c.sampleSize) + " drawn");
        const bool regression = std::string(c.criterion) == "mse";
        const Data data = makeData(2500, regression);
        const auto criteria =
            SplitCriteriaFactory<double, double>::make(c.criterion, nullptr, "", "");
        const auto together = grow(data, criteria, c.surrogates, {.sampleSize = c.sampleSize});
        const auto oneByOne = grow(data, criteria, c.surrogates,
                                   {.nodesInParallel = false, .sampleSize = c.sampleSize});
        EXPECT_GT(together->nodes.size(), 100u);
        expectSameTrees(*together, *oneByOne);
        // Without the kept order as well.
        const auto sorted =
            grow(data, criteria, c.surrogates, {.keepOrder = false, .sampleSize = c.sampleSize});
        expectSameTrees(*together, *sorted);
    }
}

}  // namespace
}  // namespace arbolin
