#include "frontend/input_check.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "gateway/contract.hpp"
#include "host/numora_host.hpp"

namespace arbolin::frontend {

ContractViolation::ContractViolation(Kind kind, int position, std::string_view name,
                                     const std::string& text)
    : std::invalid_argument(text), kind_(kind), position_(position), name_(name) {}

namespace {

using namespace arbolin::contract;
using Kind = ContractViolation::Kind;

// Counts above 2^53 would not survive the trip through a double.
constexpr std::uint64_t kLargestCount = std::uint64_t{1} << 53;

constexpr std::array<std::string_view, 6> kKeywords = {"error",    "gini",   "gdi",
                                                       "deviance", "twoing", "mse"};

// ---------------------------------------------------------------- messages

[[noreturn]] void fail(Kind kind, int position, const std::string& text) {
    const std::string_view name = inputName(position);
    throw ContractViolation(
        kind, position, name,
        "input " + std::to_string(position) + " (" + std::string(name) + ") " + text);
}

[[noreturn]] void failType(int position, const std::string& text) {
    fail(Kind::Type, position, text);
}

[[noreturn]] void failValue(int position, const std::string& text) {
    fail(Kind::Value, position, text);
}

// The shortest text that reads back as the same value.
template <class T>
std::string shown(T v) {
    if (std::isnan(v)) return "NaN";
    if (std::isinf(v)) return v > 0 ? "Inf" : "-Inf";
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), v).ptr;
    return std::string(text.data(), end);
}

// "a 2 by 3 double array", for the end of a message.
std::string described(const cxArray* a) {
    if (a == nullptr) return "nothing";
    if (cxGetClassID(a) == cxOBJECT_CLASS) {
        return "an object of class " + numora::cxGetObjectClassName(a);
    }
    std::string dims;
    const std::uint64_t* d = cxGetDimensions(a);
    for (std::uint64_t k = 0; k < cxGetNumberOfDimensions(a); ++k) {
        dims += (k == 0 ? "" : " by ") + std::to_string(d[k]);
    }
    const std::string cls = numora::classIdName(cxGetClassID(a));
    return "a " + dims + " " + cls + (cls == "cell" ? "" : " array");
}

// ------------------------------------------------------------ array kinds

bool isFloating(const cxArray* a) {
    return cxGetClassID(a) == cxDOUBLE_CLASS || cxGetClassID(a) == cxSINGLE_CLASS;
}

bool isRealNumeric(const cxArray* a) {
    const cxClassID id = cxGetClassID(a);
    return id == cxDOUBLE_CLASS || id == cxSINGLE_CLASS ||
           (id >= cxINT8_CLASS && id <= cxUINT64_CLASS);
}

bool isMatrix(const cxArray* a) { return cxGetNumberOfDimensions(a) == 2; }

template <class T>
bool isWhole(T v) {
    return std::isfinite(v) && std::trunc(v) == v;
}

template <class T>
const T* elements(const cxArray* a) {
    return static_cast<const T*>(cxGetData(a));
}

// Calls `body` with the data of a double or single array as a pointer to
// double or to float.
template <class Body>
void withElements(const cxArray* a, Body&& body) {
    if (cxGetClassID(a) == cxDOUBLE_CLASS) {
        body(elements<double>(a));
    } else {
        body(elements<float>(a));
    }
}

// ----------------------------------------------------------------- scalars

double scalar(const cxArray* a, int position) {
    if (!isRealNumeric(a) || cxGetNumberOfElements(a) != 1) {
        failType(position, "must be a real numeric scalar, not " + described(a));
    }
    return cxGetScalar(a);
}

// A whole number in [low, high]; `why` explains a bound that depends on the
// data, e.g. " (X has 3 columns)".
std::uint64_t count(const cxArray* a, int position, std::uint64_t low, std::uint64_t high,
                    const std::string& why = "") {
    const double v = scalar(a, position);
    if (isWhole(v) && v >= static_cast<double>(low) && v <= static_cast<double>(high)) {
        return static_cast<std::uint64_t>(v);
    }
    if (high == kLargestCount) {
        failValue(position, (isWhole(v) && v > static_cast<double>(kLargestCount)
                                 ? std::string("must be a whole number no larger than 2^53")
                                 : "must be a whole number of at least " + std::to_string(low)) +
                                why + ", not " + shown(v));
    }
    failValue(position, "must be a whole number from " + std::to_string(low) + " to " +
                            std::to_string(high) + why + ", not " + shown(v));
}

void flag(const cxArray* a, int position) {
    if (cxGetClassID(a) != cxLOGICAL_CLASS || cxGetNumberOfElements(a) != 1) {
        failType(position, "must be a logical scalar, not " + described(a));
    }
}

// -------------------------------------------------------------- the data

struct Data {
    std::uint64_t N = 0;  // rows of X
    std::uint64_t D = 0;  // columns of X
    cxClassID weightClass = cxDOUBLE_CLASS;
};

Data checkData(const cxArray* x, const cxArray* y, const cxArray* w) {
    if (!isFloating(x) || !isMatrix(x)) {
        failType(input::X, "must be a real double or single matrix (N by D), not " + described(x));
    }
    Data data{cxGetM(x), cxGetN(x), cxGetClassID(w)};
    const std::string perRow = " of " + std::to_string(data.N) + " elements, one for each row of X";
    if (!isFloating(y) || cxGetNumberOfElements(y) != data.N) {
        failType(input::Y, "must be a double or single array" + perRow + ", not " + described(y));
    }
    if (!isFloating(w) || cxGetNumberOfElements(w) != data.N) {
        failType(input::W, "must be a double or single array" + perRow + ", not " + described(w));
    }
    // The module runs this one combination on the driver of single X and Y
    // with double weights, and would read the single W as doubles.
    if (cxGetClassID(x) == cxDOUBLE_CLASS && cxGetClassID(y) == cxSINGLE_CLASS &&
        cxGetClassID(w) == cxSINGLE_CLASS) {
        failType(input::W, "must be double when X is double and Y single, not " + described(w));
    }
    return data;
}

void checkRows(const cxArray* rows, std::uint64_t N) {
    if (cxGetClassID(rows) != cxDOUBLE_CLASS) {
        failType(input::Rows, "must be a double array of row numbers, not " + described(rows));
    }
    const double* r = elements<double>(rows);
    for (std::uint64_t i = 0; i < cxGetNumberOfElements(rows); ++i) {
        if (N == 0) {
            failValue(input::Rows, "must be empty: X has no rows");
        }
        if (!isWhole(r[i]) || r[i] < 0 || r[i] > static_cast<double>(N - 1)) {
            failValue(input::Rows, "must hold 0-based row numbers of X, whole numbers from 0 to " +
                                       std::to_string(N - 1) + ", not " + shown(r[i]) +
                                       " (at index " + std::to_string(i) + ")");
        }
    }
}

void checkIsCat(const cxArray* isCat, std::uint64_t D) {
    if (cxGetClassID(isCat) != cxLOGICAL_CLASS || cxGetNumberOfElements(isCat) != D) {
        failType(input::IsCat, "must be a logical array of " + std::to_string(D) +
                                   " elements, one for each column of X, not " + described(isCat));
    }
}

// ------------------------------------------------------------ the criterion

struct Criterion {
    std::string keyword;  // "custom" for host functions
    bool regression() const { return keyword == "mse"; }
};

Criterion checkCriterion(const cxArray* arg) {
    if (cxGetClassID(arg) == cxCHAR_CLASS) {
        const std::string text = cxGetString(arg);
        for (std::string_view k : kKeywords) {
            if (text == k) return {text};
        }
        failValue(input::CriterionArg,
                  "must be one of \"error\", \"gini\", \"gdi\", \"deviance\", \"twoing\", \"mse\", "
                  "or a cell of two host function names, not \"" +
                      text + "\"");
    }
    const auto isText = [](const cxArray* a) { return cxGetClassID(a) == cxCHAR_CLASS; };
    if (cxGetClassID(arg) != cxCELL_CLASS || cxGetNumberOfElements(arg) != 2 ||
        !isText(cxGetCell(arg, 0)) || !isText(cxGetCell(arg, 1))) {
        failType(input::CriterionArg,
                 "must be a char array naming a criterion, or a cell of two char arrays naming "
                 "the parent and the kids host functions, not " +
                     described(arg));
    }
    if (cxGetString(cxGetCell(arg, 0)).empty()) {
        failValue(input::CriterionArg,
                  "must name a parent host function: its first element is empty");
    }
    return {"custom"};
}

// --------------------------------------------------------------- settings

std::uint64_t checkSettings(const cxArray* const in[], const Data& data) {
    const std::uint64_t D = data.D;
    const std::string columns = " (X has " + std::to_string(D) + " columns)";
    count(in[slot(input::MinLeaf)], input::MinLeaf, 1, kLargestCount);
    count(in[slot(input::MinParent)], input::MinParent, 1, kLargestCount);
    count(in[slot(input::MaxSplits)], input::MaxSplits, 0, kLargestCount);
    const std::uint64_t sampleSize =
        count(in[slot(input::SampleSize)], input::SampleSize, D == 0 ? 0 : 1, D, columns);
    count(in[slot(input::SurrogateCount)], input::SurrogateCount, 0, D, columns);
    count(in[slot(input::MaxCat)], input::MaxCat, 0, 63, " (exact enumeration stops at 63 levels)");
    count(in[slot(input::AlgCat)], input::AlgCat, 0, 4);
    return sampleSize;
}

void checkRiskTolerance(const cxArray* a) {
    const double v = scalar(a, input::RiskTolerance);
    if (!(v >= 0 && v <= 1)) {
        failValue(input::RiskTolerance, "must be a number from 0 to 1, not " + shown(v));
    }
}

// Only a node that draws fewer predictors than there are asks for a stream.
void checkStream(const cxArray* stream, std::uint64_t sampleSize, std::uint64_t D) {
    if (sampleSize >= D || cxIsEmpty(stream)) return;
    bool valid = cxGetClassID(stream) == cxOBJECT_CLASS &&
                 numora::cxGetObjectClassName(stream) == "RandStream";
    if (valid) {
        const numora::ArrayPtr id(cxGetProperty(stream, 0, "StreamID"));
        valid =
            id && cxGetClassID(id.get()) == cxUINT64_CLASS && cxGetNumberOfElements(id.get()) == 1;
    }
    if (!valid) {
        failType(input::StreamArg,
                 "must be empty or a RandStream object with a uint64 StreamID "
                 "when SampleSize is below the number of columns of X, not " +
                     described(stream));
    }
}

// The size K of the cost matrix, 0 for none.
std::uint64_t checkCost(const cxArray* cost, const Criterion& criterion, cxClassID weightClass) {
    if (cxGetN(cost) == 0) return 0;
    const std::uint64_t K = cxGetN(cost);
    if (cxGetClassID(cost) != weightClass || !isMatrix(cost) || cxGetM(cost) != K) {
        failType(input::CostArg, "must be empty or a square " + numora::classIdName(weightClass) +
                                     " matrix (the class of W), not " + described(cost));
    }
    if (criterion.regression()) {
        failValue(input::CostArg, "must be empty for a regression (criterion \"mse\")");
    }
    withElements(cost, [&](const auto* c) {
        using T = std::remove_cvref_t<decltype(*c)>;
        for (std::uint64_t i = 0; i < K * K; ++i) {
            if (!(std::isfinite(c[i]) && c[i] >= 0)) {
                failValue(input::CostArg, "must hold finite costs of 0 or more, not " +
                                              shown(c[i]) + " (row " + std::to_string(i % K) +
                                              ", column " + std::to_string(i / K) + ")");
            }
        }
        if (criterion.keyword == "error") return;
        // Every other criterion scales each class by its row of costs over
        // the sum of all, summed as the module sums them.
        T total = 0;
        for (std::uint64_t i = 0; i < K; ++i) {
            T rowSum = 0;
            for (std::uint64_t j = 0; j < K; ++j) rowSum += c[i + j * K];
            total += rowSum;
        }
        if (!(std::isfinite(total) && total > 0)) {
            failValue(input::CostArg,
                      "must have a positive, finite sum of costs, not " + shown(total));
        }
    });
    return K;
}

// ------------------------------------------------------ the rows used

template <class T>
void checkWeights(const T* w, const std::vector<std::uint64_t>& rows) {
    for (std::uint64_t r : rows) {
        if (!(std::isfinite(w[r]) && w[r] >= 0)) {
            failValue(input::W, "must be finite and not negative at the rows used, not " +
                                    shown(w[r]) + " (at row " + std::to_string(r) + ")");
        }
    }
}

template <class T>
void checkResponse(const T* y, const std::vector<std::uint64_t>& rows) {
    for (std::uint64_t r : rows) {
        if (!std::isfinite(y[r])) {
            failValue(input::Y, "must be finite at the rows used, not " + shown(y[r]) +
                                    " (at row " + std::to_string(r) + ")");
        }
    }
}

// Class codes below K, which is the size of the cost matrix when there is
// one (`costSize` not 0), else N.
template <class T>
void checkClasses(const T* y, std::uint64_t N, const std::vector<std::uint64_t>& rows,
                  std::uint64_t costSize) {
    const std::uint64_t K = costSize != 0 ? costSize : N;
    const auto belowK = [K](T code) { return static_cast<double>(code) < static_cast<double>(K); };
    const auto tooHigh = [&](T code, std::uint64_t row, const char* where) {
        if (costSize != 0) {
            failValue(input::CostArg, "is " + std::to_string(K) + " by " + std::to_string(K) +
                                          ", but Y holds the class code " + shown(code) + where +
                                          std::to_string(row) +
                                          ": the matrix needs a row and a column for each class");
        }
        failValue(input::Y, "holds the class code " + shown(code) + where + std::to_string(row) +
                                ", but class codes must be below the number of rows of X, " +
                                std::to_string(N));
    };
    for (std::uint64_t r : rows) {
        if (!isWhole(y[r]) || y[r] < 0) {
            failValue(input::Y,
                      "must hold class codes, whole numbers of 0 or more, at the rows "
                      "used, not " +
                          shown(y[r]) + " (at row " + std::to_string(r) + ")");
        }
        if (!belowK(y[r])) tooHigh(y[r], r, " at row ");
    }
    if (N == 0) return;
    // The module counts 1 + the largest value of all of Y, used or not; a
    // NaN in first place stands as the largest.
    std::uint64_t at = 0;
    for (std::uint64_t i = 1; i < N; ++i) {
        if (y[i] > y[at]) at = i;
    }
    if (std::isnan(y[at])) {
        failValue(input::Y,
                  "must not begin with NaN in a classification, row used or not: "
                  "the number of classes is taken from the largest value of Y");
    }
    if (!(y[at] >= 0)) {
        failValue(input::Y, "must hold a class code somewhere: its largest value, " + shown(y[at]) +
                                ", sets the number of classes");
    }
    if (!belowK(std::trunc(y[at]))) tooHigh(y[at], at, " at the unused row ");
}

void checkRowData(const cxArray* const in[], const Data& data, const Criterion& criterion,
                  std::uint64_t costSize) {
    const cxArray* rowArray = in[slot(input::Rows)];
    std::vector<std::uint64_t> rows(cxGetNumberOfElements(rowArray));
    for (std::uint64_t i = 0; i < rows.size(); ++i) {
        rows[i] = static_cast<std::uint64_t>(elements<double>(rowArray)[i]);
    }
    withElements(in[slot(input::Y)], [&](const auto* y) {
        if (criterion.regression()) {
            checkResponse(y, rows);
        } else {
            checkClasses(y, data.N, rows, costSize);
        }
    });
    withElements(in[slot(input::W)], [&](const auto* w) { checkWeights(w, rows); });
}

}  // namespace

void checkModuleInputs(int inputCount, const cxArray* const inputs[]) {
    if (inputCount != kInputCount) {
        throw ContractViolation(Kind::Type, 0, "",
                                "the module takes " + std::to_string(kInputCount) +
                                    " inputs, not " + std::to_string(inputCount));
    }
    for (const Argument& a : kInputs) {
        if (inputs[slot(a.position)] == nullptr) failType(a.position, "is missing");
    }
    const auto at = [&](int position) { return inputs[slot(position)]; };

    const Data data = checkData(at(input::X), at(input::Y), at(input::W));
    checkRows(at(input::Rows), data.N);
    checkIsCat(at(input::IsCat), data.D);
    const Criterion criterion = checkCriterion(at(input::CriterionArg));
    const std::uint64_t sampleSize = checkSettings(inputs, data);
    const std::uint64_t costSize = checkCost(at(input::CostArg), criterion, data.weightClass);
    checkRiskTolerance(at(input::RiskTolerance));
    flag(at(input::CurvatureFlag), input::CurvatureFlag);
    flag(at(input::InteractionFlag), input::InteractionFlag);
    flag(at(input::ChisqFlag), input::ChisqFlag);
    checkStream(at(input::StreamArg), sampleSize, data.D);
    count(at(input::Verbosity), input::Verbosity, 0, 5, " (5 prints everything)");

    checkRowData(inputs, data, criterion, costSize);
}

}  // namespace arbolin::frontend
