// The module's two entry points.
#include <cstdint>
#include <string>

#include "core/types.hpp"
#include "core/weave_canopy.hpp"
#include "gateway/messages.hpp"
#include "gateway/numora.hpp"

namespace {

using namespace arbolin;
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
        wDouble ? weaveCanopy<float, float, double>(args)
                : weaveCanopy<float, float, float>(args);
    }
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void calyxFunction(int outputCount,
                                                                     cxArray* outputs[],
                                                                     int inputCount,
                                                                     const cxArray* inputs[]) {
    if (inputCount != 20) {
        raise(msg::BadNumberOfInputArgs(20));
    }
    if (outputCount > 22) {
        raise(msg::BadNumberOfOutputArgs(22));
    }

    CanopyArgs args;
    args.outputCount = outputCount;
    args.outputs = outputs;
    args.x = cxGetData(inputs[0]);
    args.y = cxGetData(inputs[1]);
    args.w = cxGetData(inputs[2]);
    args.isCat = cxGetLogicals(inputs[4]);

    // A char array names a built-in criterion; a cell names the two host
    // functions of a custom one; anything else is refused by the factory.
    std::string criterion, parentFunction, kidsFunction;
    const cxArray* criterionArg = inputs[5];
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

    args.MinLeaf = countOf(inputs[6]);
    args.MinParent = countOf(inputs[7]);
    args.MaxSplits = countOf(inputs[8]);
    args.SampleSize = countOf(inputs[9]);
    args.SurrogateCount = countOf(inputs[10]);
    args.MaxCat = countOf(inputs[11]);
    args.AlgCat = countOf(inputs[12]);
    args.CostArg = inputs[13];
    args.RiskTolerance = cxGetScalar(inputs[14]);
    args.CurvatureFlag = cxIsLogicalScalarTrue(inputs[15]);
    args.InteractionFlag = cxIsLogicalScalarTrue(inputs[16]);
    args.ChisqFlag = cxIsLogicalScalarTrue(inputs[17]);
    args.StreamArg = inputs[18];
    args.Verbosity = countOf(inputs[19]);

    args.N = cxGetM(inputs[0]);
    args.D = cxGetN(inputs[0]);

    const std::uint64_t rowCount = cxGetNumberOfElements(inputs[3]);
    const double* rowValues = static_cast<const double*>(cxGetData(inputs[3]));
    RowList rows(rowCount);
    for (std::uint64_t i = 0; i < rowCount; ++i) {
        rows[i] = toCount(rowValues[i]);
    }
    args.rows = &rows;

    dispatch(args, cxGetClassID(inputs[0]) == cxDOUBLE_CLASS,
             cxGetClassID(inputs[1]) == cxDOUBLE_CLASS, cxGetClassID(inputs[2]) == cxDOUBLE_CLASS);
}

extern "C" __attribute__((visibility("default"))) void calyxfilerequiredapiversion(
    std::uint32_t* first, std::uint32_t* second) {
    *first = kCalyxApiMajor;
    *second = kCalyxApiMinor;
}
