// The module's two entry points.
#include <cstdint>
#include <string>

#include "core/types.hpp"
#include "core/weave_canopy.hpp"
#include "gateway/contract.hpp"
#include "gateway/messages.hpp"
#include "gateway/numora.hpp"

namespace {

using namespace arbolin;
using namespace arbolin::contract;
namespace msg = tallix::silvan::learning::treeutils::weaveCanopy;

std::uint64_t countOf(const cxArray* a) { return toCount(cxGetScalar(a)); }

std::string textOf(const cxArray* a) {
    return a != nullptr && cxGetClassID(a) == cxCHAR_CLASS ? cxGetString(a) : std::string();
}

// Each array is asked one question: is it double? Every other class takes
// the single branch. Double X with single Y and W goes, on purpose, to the
// driver of all-single data but double weights, with no conversion.
void dispatch(const CanopyArgs& args, bool xDouble, bool yDouble, bool wDouble) {
    if (xDouble) {
        if (yDouble) {
            wDouble ? weaveCanopy<double, double, double>(args)
                    : weaveCanopy<double, double, float>(args);
        } else {
            wDouble ? weaveCanopy<double, float, double>(args)
                    : weaveCanopy<float, float, double>(args);
        }
    } else if (yDouble) {
        wDouble ? weaveCanopy<float, double, double>(args)
                : weaveCanopy<float, double, float>(args);
    } else {
        wDouble ? weaveCanopy<float, float, double>(args) : weaveCanopy<float, float, float>(args);
    }
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void calyxFunction(int outputCount,
                                                                     cxArray* outputs[],
                                                                     int inputCount,
                                                                     const cxArray* inputs[]) {
    if (inputCount != kInputCount) {
        raise(msg::BadNumberOfInputArgs(kInputCount));
    }
    if (outputCount > kOutputCount) {
        raise(msg::BadNumberOfOutputArgs(kOutputCount));
    }

    CanopyArgs args;
    args.outputCount = outputCount;
    args.outputs = outputs;
    args.x = cxGetData(inputs[slot(input::X)]);
    args.y = cxGetData(inputs[slot(input::Y)]);
    args.w = cxGetData(inputs[slot(input::W)]);
    args.isCat = cxGetLogicals(inputs[slot(input::IsCat)]);

    // A char array names a built-in criterion; a cell names the two host
    // functions of a custom one; anything else is refused by the factory.
    std::string criterion, parentFunction, kidsFunction;
    const cxArray* criterionArg = inputs[slot(input::CriterionArg)];
    if (cxGetClassID(criterionArg) == cxCHAR_CLASS) {
        criterion = cxGetString(criterionArg);
    } else if (cxGetClassID(criterionArg) == cxCELL_CLASS) {
        criterion = "custom";
        const std::uint64_t count = cxGetNumberOfElements(criterionArg);
        parentFunction = count > 0 ? textOf(cxGetCell(criterionArg, 0)) : std::string();
        kidsFunction = count > 1 ? textOf(cxGetCell(criterionArg, 1)) : std::string();
    }
    args.criterion = &criterion;
    args.parentFunction = &parentFunction;
    args.kidsFunction = &kidsFunction;

    args.MinLeaf = countOf(inputs[slot(input::MinLeaf)]);
    args.MinParent = countOf(inputs[slot(input::MinParent)]);
    args.MaxSplits = countOf(inputs[slot(input::MaxSplits)]);
    args.SampleSize = countOf(inputs[slot(input::SampleSize)]);
    args.SurrogateCount = countOf(inputs[slot(input::SurrogateCount)]);
    args.MaxCat = countOf(inputs[slot(input::MaxCat)]);
    args.AlgCat = countOf(inputs[slot(input::AlgCat)]);
    args.CostArg = inputs[slot(input::CostArg)];
    args.RiskTolerance = cxGetScalar(inputs[slot(input::RiskTolerance)]);
    args.CurvatureFlag = cxIsLogicalScalarTrue(inputs[slot(input::CurvatureFlag)]);
    args.InteractionFlag = cxIsLogicalScalarTrue(inputs[slot(input::InteractionFlag)]);
    args.ChisqFlag = cxIsLogicalScalarTrue(inputs[slot(input::ChisqFlag)]);
    args.StreamArg = inputs[slot(input::StreamArg)];
    args.Verbosity = countOf(inputs[slot(input::Verbosity)]);

    args.N = cxGetM(inputs[slot(input::X)]);
    args.D = cxGetN(inputs[slot(input::X)]);

    const std::uint64_t rowCount = cxGetNumberOfElements(inputs[slot(input::Rows)]);
    const double* rowValues = static_cast<const double*>(cxGetData(inputs[slot(input::Rows)]));
    RowList rows(rowCount);
    for (std::uint64_t i = 0; i < rowCount; ++i) {
        rows[i] = toCount(rowValues[i]);
    }
    args.rows = &rows;

    dispatch(args, cxGetClassID(inputs[slot(input::X)]) == cxDOUBLE_CLASS,
             cxGetClassID(inputs[slot(input::Y)]) == cxDOUBLE_CLASS,
             cxGetClassID(inputs[slot(input::W)]) == cxDOUBLE_CLASS);
}

extern "C" __attribute__((visibility("default"))) void calyxfilerequiredapiversion(
    std::uint32_t* first, std::uint32_t* second) {
    *first = kCalyxApiMajor;
    *second = kCalyxApiMinor;
}
