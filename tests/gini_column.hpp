// A Gini-scored column over rows 0..n-1 of unit weight, built as a node's
// search builds its columns, for tests of one column's operations.
#pragma once

#include <memory>
#include <numeric>
#include <vector>

#include "columns/column.hpp"
#include "criteria/gini.hpp"

namespace arbolin::testing {

struct GiniColumnSettings {
    std::uint64_t classCount = 3;
    std::uint64_t minLeaf = 1;
    bool nominal = false;
    std::uint64_t algCat = 0;
    std::uint64_t maxCat = 10;
};

struct GiniColumn {
    std::vector<double> x, y, w;
    RowList present, missing;
    Gini<double, double> gini;
    std::unique_ptr<IndexedColumn<double, double, double>> column;

    GiniColumn(std::vector<double> xs, std::vector<double> ys, const GiniColumnSettings& settings)
        : x(std::move(xs)), y(std::move(ys)), w(x.size(), 1.0), present(x.size()) {
        std::iota(present.begin(), present.end(), 0);
        ColumnSetup<double, double, double> s;
        s.nominal = settings.nominal;
        s.rowCount = x.size();
        s.x = x.data();
        s.y = y.data();
        s.w = w.data();
        s.present = &present;
        s.missing = &missing;
        s.classCount = settings.classCount;
        s.minLeaf = settings.minLeaf;
        s.classCriterion = &gini;
        s.algCat = settings.algCat;
        s.maxCat = settings.maxCat;
        s.parentProb = s.presentProb = static_cast<double>(x.size());
        column = std::make_unique<IndexedColumn<double, double, double>>(s);
    }
};

}  // namespace arbolin::testing
