// Building the level tables of a nominal column: per level its raw values,
// its rows by class (or its rows and mean response), and the search orders.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "columns/indexed_column.hpp"
#include "nominal/level_tables.hpp"

namespace arbolin {

// Calls f for each row of the column's present rows whose value is that of
// the row at `representative`, in list order. Levels are built on rows
// sorted by value (divide sorts first), so these rows are one run from
// there on.
template <class X, class Y, class W, class F>
void forEachRowWithValueOf(const IndexedColumn<X, Y, W>& column, std::uint64_t representative,
                           F f) {
    const RowList& rows = *column.present_;
    const X* x = column.x_;
    const X value = x[rows[representative]];
    for (std::uint64_t p = representative; p < rows.size() && x[rows[p]] == value; ++p) {
        f(rows[p]);
    }
}

// Values that occur with one class only collapse into one level of that
// class, after the ordinary levels.
template <class X, class Y, class W>
void buildClassificationLevels(IndexedColumn<X, Y, W>& column,
                               const ScalableVector<std::uint64_t>& representatives) {
    const bool interaction = column.interaction_;
    LevelTables<X, W>& t = column.levels;
    const std::uint64_t K = column.classCount_;
    const std::size_t slots = representatives.size();
    ScalableVector<ScalableVector<X>> pureValues(K);
    ScalableVector<std::uint64_t> pureCounts(K, 0);
    ScalableVector<W> pureWeights(K, W(0));
    ScalableVector<RowList> pureRows(interaction ? K : 0);
    t.LevelValues.assign(slots, ScalableVector<X>(1));
    t.LevelCounts.assign(slots, ScalableVector<std::uint64_t>(K, 0));
    t.LevelWeights.assign(slots, ScalableVector<W>(K, W(0)));
    if (interaction) {
        t.LevelRows.assign(slots, RowList());
    }

    std::size_t L = 0;
    for (std::uint64_t representative : representatives) {
        const X value = column.x_[(*column.present_)[representative]];
        RowList rows;  // kept only for the interaction tests
        ScalableVector<std::uint64_t> counts(K, 0);
        ScalableVector<W> weights(K, W(0));
        forEachRowWithValueOf(column, representative, [&](std::uint64_t r) {
            const std::uint64_t k = classOf(column.y_[r]);
            ++counts[k];
            weights[k] += column.w_[r];
            if (interaction) {
                rows.push_back(r);
            }
        });
        const auto present =
            std::count_if(counts.begin(), counts.end(), [](std::uint64_t c) { return c != 0; });
        if (present == 1) {
            const std::uint64_t k = static_cast<std::uint64_t>(
                std::find_if(counts.begin(), counts.end(), [](std::uint64_t c) { return c != 0; }) -
                counts.begin());
            pureValues[k].push_back(value);
            pureCounts[k] += counts[k];
            pureWeights[k] += weights[k];
            if (interaction) {
                pureRows[k].insert(pureRows[k].end(), rows.begin(), rows.end());
            }
            continue;
        }
        t.LevelValues[L][0] = value;
        t.LevelCounts[L] = std::move(counts);
        t.LevelWeights[L] = std::move(weights);
        if (interaction) {
            t.LevelRows[L] = std::move(rows);
        }
        ++L;
    }
    for (std::uint64_t k = 0; k < K; ++k) {
        if (pureCounts[k] == 0) {
            continue;
        }
        t.LevelValues[L] = std::move(pureValues[k]);
        t.LevelCounts[L][k] = pureCounts[k];
        t.LevelWeights[L][k] = pureWeights[k];
        if (interaction) {
            t.LevelRows[L] = std::move(pureRows[k]);
        }
        ++L;
    }
    t.LevelValues.resize(L);
    t.LevelCounts.resize(L);
    t.LevelWeights.resize(L);
    if (interaction) {
        t.LevelRows.resize(L);
        for (RowList& rows : t.LevelRows) {
            std::sort(rows.begin(), rows.end());
        }
    }

    ScalableVector<ScalableVector<W>> fractions(L);
    for (std::size_t level = 0; level < L; ++level) {
        const W total = sumInOrder(t.LevelWeights[level]);
        fractions[level].resize(K);
        for (std::uint64_t k = 0; k < K; ++k) {
            fractions[level][k] = t.LevelWeights[level][k] / total;
        }
    }
    // Per class, its levels by falling fraction, then falling weight. A
    // weightless level's NaN fraction goes last, so the order stays strict.
    t.SortedLevels.assign(K, ScalableVector<std::uint64_t>());
    for (std::uint64_t k = 0; k < K; ++k) {
        auto& list = t.SortedLevels[k];
        for (std::uint64_t level = 0; level < L; ++level) {
            if (t.LevelCounts[level][k] != 0) {
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
            return fa > fb || (fa == fb && t.LevelWeights[a][k] > t.LevelWeights[b][k]);
        });
    }
}

// One level per value, searched in rising order of its weighted mean
// response, then of its weight.
template <class X, class Y, class W>
void buildRegressionLevels(IndexedColumn<X, Y, W>& column,
                           const ScalableVector<std::uint64_t>& representatives) {
    const bool curvature = column.curvature_;
    const bool interaction = column.interaction_;
    LevelTables<X, W>& t = column.levels;
    const std::size_t L = representatives.size();
    t.LevelValues.assign(L, ScalableVector<X>(1));
    t.LevelCounts.assign(L, ScalableVector<std::uint64_t>(1, 0));
    t.LevelWeights.assign(L, ScalableVector<W>(1, W(0)));
    ScalableVector<W> means(L, W(0));
    if (curvature) {
        t.LevelRows.assign(L, RowList());
    }
    for (std::size_t level = 0; level < L; ++level) {
        std::uint64_t count = 0;
        W weight = 0;
        W weighted = 0;
        RowList rows;  // kept only for the curvature tests
        forEachRowWithValueOf(column, representatives[level], [&](std::uint64_t r) {
            ++count;
            weight += column.w_[r];
            weighted += static_cast<W>(column.y_[r]) * column.w_[r];
            if (curvature) {
                rows.push_back(r);
            }
        });
        t.LevelValues[level][0] = column.x_[(*column.present_)[representatives[level]]];
        t.LevelCounts[level][0] = count;
        if (count != 0) {
            t.LevelWeights[level][0] = weight;
            if (weight > W(0)) {
                means[level] = weighted / weight;
            }
        }
        if (curvature) {
            t.LevelRows[level] = std::move(rows);
        }
    }
    if (interaction) {
        for (RowList& rows : t.LevelRows) {
            std::sort(rows.begin(), rows.end());
        }
    }
    t.SortedLevels.assign(1, ScalableVector<std::uint64_t>(L));
    auto& list = t.SortedLevels[0];
    for (std::uint64_t level = 0; level < L; ++level) {
        list[level] = level;
    }
    std::sort(list.begin(), list.end(), [&](std::uint64_t a, std::uint64_t b) {
        return means[a] < means[b] ||
               (means[a] == means[b] && t.LevelWeights[a][0] < t.LevelWeights[b][0]);
    });
}

// The level tables of the column, from its present rows sorted by value;
// nothing when they are built already or the column has one value.
template <class X, class Y, class W>
void buildLevels(IndexedColumn<X, Y, W>& column) {
    const RowList& rows = *column.present_;
    const X* x = column.x_;
    const LevelTables<X, W>& levels = column.levels;
    if (!levels.LevelValues.empty() || rows.empty()) {
        return;
    }
    // One representative per run of equal values: the first row, then each
    // row whose value differs from the last representative's.
    ScalableVector<std::uint64_t> representatives{0};
    for (std::uint64_t p = 1; p < rows.size(); ++p) {
        const X value = x[rows[p]];
        if (value != x[rows[representatives.back()]]) {
            representatives.push_back(p);
        }
    }
    if (representatives.size() < 2) {
        return;
    }
    if (column.classCriterion_ != nullptr) {
        buildClassificationLevels(column, representatives);
    } else {
        buildRegressionLevels(column, representatives);
    }
    if (column.verbosity_ > 3) {
        calyxPrintf("Sorted categories per class:\n");
        for (std::size_t k = 0; k < levels.SortedLevels.size(); ++k) {
            calyxPrintf("   Class %i:", std::uint64_t{k});
            for (std::uint64_t level : levels.SortedLevels[k]) {
                calyxPrintf("  %i", level);
            }
            calyxPrintf("\n");
        }
    }
}

}  // namespace arbolin
