// The typed driver: one tree from plain values.
#pragma once

#include <cstdint>
#include <string>

#include "core/types.hpp"
#include "gateway/numora.hpp"

namespace arbolin {

// The decoded arguments of one call, in the order of the entry point's
// inputs. The row vector and the strings are lent by the entry point.
struct CanopyArgs {
    int outputCount = 0;
    cxArray** outputs = nullptr;
    std::uint64_t N = 0;  // rows of X
    std::uint64_t D = 0;  // predictors
    const void* x = nullptr;
    const void* y = nullptr;
    const void* w = nullptr;
    const RowList* rows = nullptr;
    const bool* isCat = nullptr;
    const std::string* criterion = nullptr;
    const std::string* parentFunction = nullptr;
    const std::string* kidsFunction = nullptr;
    std::uint64_t MinLeaf = 0;
    std::uint64_t MinParent = 0;
    std::uint64_t MaxSplits = 0;
    std::uint64_t SampleSize = 0;
    std::uint64_t SurrogateCount = 0;
    std::uint64_t MaxCat = 0;
    std::uint64_t AlgCat = 0;
    const cxArray* CostArg = nullptr;
    bool CurvatureFlag = false;
    bool InteractionFlag = false;
    bool ChisqFlag = false;
    const cxArray* StreamArg = nullptr;
    std::uint64_t Verbosity = 0;
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
