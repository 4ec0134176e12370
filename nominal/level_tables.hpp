// The level tables of a nominal column: per level its raw values, its rows
// by class (or its rows and mean response), and the search orders.
#pragma once

#include <algorithm>
#include <cmath>

#include "columns/indexed_column.hpp"

namespace arbolin {

// Calls f for each row of present_ whose value is that of the row at
// `representative`, in list order. Levels are built on rows sorted by value
// (divide sorts first), so these rows are one run from there on.
template <class X, class Y, class W>
template <class F>
void IndexedColumn<X, Y, W>::forEachRowWithValueOf(std::uint64_t representative, F f) const {
    const RowList& rows = *present_;
    const X value = x_[rows[representative]];
    for (std::uint64_t p = representative; p < rows.size() && x_[rows[p]] == value; ++p) {
        f(rows[p]);
    }
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::buildLevels() {
    if (!LevelValues.empty() || present_->empty()) {
        return;
    }
    const RowList& rows = *present_;
    // One representative per run of equal values: the first row, then each
    // row whose value differs from the last representative's.
    ScalableVector<std::uint64_t> representatives{0};
    for (std::uint64_t p = 1; p < rows.size(); ++p) {
        const X value = x_[rows[p]];
        if (value != x_[rows[representatives.back()]]) {
            representatives.push_back(p);
        }
    }
    if (representatives.size() < 2) {
        return;
    }
    if (classCriterion_ != nullptr) {
        buildClassificationLevels(representatives);
    } else {
        buildRegressionLevels(representatives);
    }
    if (verbosity_ > 3) {
        calyxPrintf("Sorted categories per class:\n");
        for (std::size_t k = 0; k < SortedLevels.size(); ++k) {
            calyxPrintf("   Class %i:", std::uint64_t{k});
            for (std::uint64_t level : SortedLevels[k]) {
                calyxPrintf("  %i", level);
            }
            calyxPrintf("\n");
        }
    }
}

// Values that occur with one class only collapse into one level of that
// class, after the ordinary levels.
template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::buildClassificationLevels(
    const ScalableVector<std::uint64_t>& representatives) {
    const std::uint64_t K = classCount_;
    const std::size_t slots = representatives.size();
    ScalableVector<ScalableVector<X>> pureValues(K);
    ScalableVector<std::uint64_t> pureCounts(K, 0);
    ScalableVector<W> pureWeights(K, W(0));
    ScalableVector<RowList> pureRows(interaction_ ? K : 0);
    LevelValues.assign(slots, ScalableVector<X>(1));
    LevelCounts.assign(slots, ScalableVector<std::uint64_t>(K, 0));
    LevelWeights.assign(slots, ScalableVector<W>(K, W(0)));
    if (interaction_) {
        LevelRows.assign(slots, RowList());
    }

    std::size_t L = 0;
    for (std::uint64_t representative : representatives) {
        const X value = x_[(*present_)[representative]];
        RowList rows;  // kept only for the interaction tests
        ScalableVector<std::uint64_t> counts(K, 0);
        ScalableVector<W> weights(K, W(0));
        forEachRowWithValueOf(representative, [&](std::uint64_t r) {
            const std::uint64_t k = classOf(y_[r]);
            ++counts[k];
            weights[k] += w_[r];
            if (interaction_) {
                rows.push_back(r);
            }
        });
        const auto present = std::count_if(counts.begin(), counts.end(),
                                           [](std::uint64_t c) { return c != 0; });
        if (present == 1) {
            const std::uint64_t k = static_cast<std::uint64_t>(
                std::find_if(counts.begin(), counts.end(), [](std::uint64_t c) { return c != 0; }) -
                counts.begin());
            pureValues[k].push_back(value);
            pureCounts[k] += counts[k];
            pureWeights[k] += weights[k];
            if (interaction_) {
                pureRows[k].insert(pureRows[k].end(), rows.begin(), rows.end());
            }
            continue;
        }
        LevelValues[L][0] = value;
        LevelCounts[L] = std::move(counts);
        LevelWeights[L] = std::move(weights);
        if (interaction_) {
            LevelRows[L] = std::move(rows);
        }
        ++L;
    }
    for (std::uint64_t k = 0; k < K; ++k) {
        if (pureCounts[k] == 0) {
            continue;
        }
        LevelValues[L] = std::move(pureValues[k]);
        LevelCounts[L][k] = pureCounts[k];
        LevelWeights[L][k] = pureWeights[k];
        if (interaction_) {
            LevelRows[L] = std::move(pureRows[k]);
        }
        ++L;
    }
    LevelValues.resize(L);
    LevelCounts.resize(L);
    LevelWeights.resize(L);
    if (interaction_) {
        LevelRows.resize(L);
        for (RowList& rows : LevelRows) {
            std::sort(rows.begin(), rows.end());
        }
    }

    ScalableVector<ScalableVector<W>> fractions(L);
    for (std::size_t level = 0; level < L; ++level) {
        const W total = sumInOrder(LevelWeights[level]);
        fractions[level].resize(K);
        for (std::uint64_t k = 0; k < K; ++k) {
            fractions[level][k] = LevelWeights[level][k] / total;
        }
    }
    // Per class, its levels by falling fraction, then falling weight. A
    // weightless level's NaN fraction goes last, so the order stays strict.
    SortedLevels.assign(K, ScalableVector<std::uint64_t>());
    for (std::uint64_t k = 0; k < K; ++k) {
        auto& list = SortedLevels[k];
        for (std::uint64_t level = 0; level < L; ++level) {
            if (LevelCounts[level][k] != 0) {
                list.push_back(level);
            }
        }
        auto key = [&](std::uint64_t level) {
            const W f = fractions[level][k];
            return std::isnan(f) ? -std::numeric_limits<W>::infinity() : f;
        };
        std::sort(list.begin(), list.end(), [&](std::uint64_t a, std::uint64_t b) {
            const W fa = key(a);
            const W fb = key(b);
            return fa > fb || (fa == fb && LevelWeights[a][k] > LevelWeights[b][k]);
        });
    }
}

// One level per value, searched in rising order of its weighted mean
// response, then of its weight.
template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::buildRegressionLevels(
    const ScalableVector<std::uint64_t>& representatives) {
    const std::size_t L = representatives.size();
    LevelValues.assign(L, ScalableVector<X>(1));
    LevelCounts.assign(L, ScalableVector<std::uint64_t>(1, 0));
    LevelWeights.assign(L, ScalableVector<W>(1, W(0)));
    ScalableVector<W> means(L, W(0));
    if (curvature_) {
        LevelRows.assign(L, RowList());
    }
    for (std::size_t level = 0; level < L; ++level) {
        std::uint64_t count = 0;
        W weight = 0;
        W weighted = 0;
        RowList rows;  // kept only for the curvature tests
        forEachRowWithValueOf(representatives[level], [&](std::uint64_t r) {
            ++count;
            weight += w_[r];
            weighted += static_cast<W>(y_[r]) * w_[r];
            if (curvature_) {
                rows.push_back(r);
            }
        });
        LevelValues[level][0] = x_[(*present_)[representatives[level]]];
        LevelCounts[level][0] = count;
        if (count != 0) {
            LevelWeights[level][0] = weight;
            if (weight > W(0)) {
                means[level] = weighted / weight;
            }
        }
        if (curvature_) {
            LevelRows[level] = std::move(rows);
        }
    }
    if (interaction_) {
        for (RowList& rows : LevelRows) {
            std::sort(rows.begin(), rows.end());
        }
    }
    SortedLevels.assign(1, ScalableVector<std::uint64_t>(L));
    auto& list = SortedLevels[0];
    for (std::uint64_t level = 0; level < L; ++level) {
        list[level] = level;
    }
    std::sort(list.begin(), list.end(), [&](std::uint64_t a, std::uint64_t b) {
        return means[a] < means[b] ||
               (means[a] == means[b] && LevelWeights[a][0] < LevelWeights[b][0]);
    });
}

}  // namespace arbolin
