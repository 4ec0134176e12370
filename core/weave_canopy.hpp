// The typed driver: one tree from plain values.
#pragma once

#include <cstdint>
#include <string>

#include "core/types.hpp"
#include "gateway/numora.hpp"

namespace arbolin {

// The decoded arguments of one call: the settings the tree keeps, and the
// data and arguments the driver turns into its own. The row vector and the
// strings are lent by the entry point.
struct CanopyArgs : GrowthSettings {
    int outputCount = 0;
    cxArray** outputs = nullptr;
    std::uint64_t N = 0;  // rows of X
    std::uint64_t D = 0;  // predictors
    const void* x = nullptr;
    const void* y = nullptr;
    const void* w = nullptr;
    RowList* rows = nullptr;  // the root's rows, handed over to the tree
    const bool* isCat = nullptr;
    const std::string* criterion = nullptr;
    const std::string* parentFunction = nullptr;
    const std::string* kidsFunction = nullptr;
    const cxArray* CostArg = nullptr;
    const cxArray* StreamArg = nullptr;
    double RiskTolerance = 0;
};

// Grows the tree and writes the requested outputs. The data pointers are
// read as X, Y and W with no conversion.
template <class X, class Y, class W>
void weaveCanopy(const CanopyArgs& args);

extern template void weaveCanopy<double, double, double>(const CanopyArgs&);
extern template void weaveCanopy<double, double, float>(const CanopyArgs&);
extern template void weaveCanopy<double, float, double>(const CanopyArgs&);
extern template void weaveCanopy<float, double, double>(const CanopyArgs&);
extern template void weaveCanopy<float, double, float>(const CanopyArgs&);
extern template void weaveCanopy<float, float, double>(const CanopyArgs&);
extern template void weaveCanopy<float, float, float>(const CanopyArgs&);

}  // namespace arbolin
