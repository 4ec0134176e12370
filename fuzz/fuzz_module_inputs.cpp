// The module's twenty inputs from arbitrary bytes: small data (up to 64
// rows and 6 predictors) whose values come mostly from a small range, now
// and then NaN, an infinity, a huge or fractional number; and now and then
// an input of the wrong class, length or shape. checkModuleInputs decides,
// and what it lets through goes to the module's entry point with up to 22
// outputs, at verbosity 0. A ContractViolation or a host error is an answer;
// a crash, a sanitizer report or any other exception escaping is a finding.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "frontend/input_check.hpp"
#include "gateway/contract.hpp"
#include "host/numora_host.hpp"

extern "C" void calyxFunction(int outputCount, cxArray* outputs[], int inputCount,
                              const cxArray* inputs[]);

namespace {

using namespace arbolin::contract;
using arbolin::frontend::ContractViolation;

constexpr int kMaxRows = 64;
constexpr int kMaxPredictors = 6;
constexpr int kMaxClasses = 5;

// How the calls ended, printed when the fuzzer exits: a harness whose calls
// are all refused tests only the check.
struct Outcomes {
    std::uint64_t refused = 0, grown = 0, hostErrors = 0, nodes = 0;
} outcomes;

void printOutcomes() {
    std::fprintf(stderr,
                 "module_inputs: %llu refused by the check, %llu trees grown (%llu nodes), "
                 "%llu host errors\n",
                 static_cast<unsigned long long>(outcomes.refused),
                 static_cast<unsigned long long>(outcomes.grown),
                 static_cast<unsigned long long>(outcomes.nodes),
                 static_cast<unsigned long long>(outcomes.hostErrors));
}

// ------------------------------------------------------------ host side

// Gini impurity of the class weights, in the class of its input, as the
// module wants a custom criterion's value.
template <class T>
double giniOf(const cxArray* v) {
    const T* w = static_cast<const T*>(cxGetData(v));
    double total = 0, squares = 0;
    for (std::uint64_t i = 0; i < cxGetNumberOfElements(v); ++i) {
        total += w[i];
        squares += static_cast<double>(w[i]) * w[i];
    }
    return total > 0 ? total - squares / total : 0.0;
}

double gini(const cxArray* v) {
    return cxGetClassID(v) == cxSINGLE_CLASS ? giniOf<float>(v) : giniOf<double>(v);
}

cxArray* valueLike(const cxArray* v, double value) {
    cxArray* out = cxCreateNumericMatrix(1, 1, cxGetClassID(v), cxREAL);
    if (cxGetClassID(v) == cxSINGLE_CLASS) {
        *static_cast<float*>(cxGetData(out)) = static_cast<float>(value);
    } else {
        *static_cast<double*>(cxGetData(out)) = value;
    }
    return out;
}

void setUpHost() {
    numora::setPrintSink([](std::string_view) {});
    numora::setWarningSink([](const numora::Message&, const std::string&) {});
    numora::registerFunction("fz_parent", [](int, cxArray** out, int, cxArray** in) {
        out[0] = valueLike(in[0], gini(in[0]));
    });
    numora::registerFunction("fz_kids", [](int, cxArray** out, int, cxArray** in) {
        out[0] = valueLike(in[0], gini(in[0]) + gini(in[1]));
    });
}

// ---------------------------------------------------------------- bytes

// Draws from the bytes. When they run out every draw gives its lowest
// choice, which is an ordinary value, never an odd one.
class Source {
public:
    explicit Source(FuzzedDataProvider& p) : p_(p) {}

    int pick(int low, int high) { return p_.ConsumeIntegralInRange(low, high); }
    bool bit() { return p_.ConsumeBool(); }
    // True once in `n` draws.
    bool rarely(int n) { return pick(0, n - 1) == n - 1; }

    double odd() {
        constexpr double inf = std::numeric_limits<double>::infinity();
        constexpr std::array<double, 14> values = {std::numeric_limits<double>::quiet_NaN(),
                                                   inf,
                                                   -inf,
                                                   1e15,
                                                   1e300,
                                                   -1.0,
                                                   0.5,
                                                   2.5,
                                                   -0.0,
                                                   9007199254740992.0,
                                                   1e6,
                                                   3.4e38,
                                                   5e-324,
                                                   -1e300};
        return values[static_cast<std::size_t>(pick(0, static_cast<int>(values.size()) - 1))];
    }

    // A whole number in [low, high], or once in `n` draws an odd value.
    double value(int low, int high, int n = 32) {
        return rarely(n) ? odd() : static_cast<double>(pick(low, high));
    }

    // Whole numbers in [low, high]; once in `n` lists a few odd values.
    std::vector<double> values(std::uint64_t count, int low, int high, int n = 8) {
        std::vector<double> v(count);
        for (double& x : v) x = static_cast<double>(pick(low, high));
        if (count != 0 && rarely(n)) {
            for (int k = pick(1, 3); k > 0; --k) {
                v[static_cast<std::size_t>(pick(0, static_cast<int>(count) - 1))] = odd();
            }
        }
        return v;
    }

private:
    FuzzedDataProvider& p_;
};

// ------------------------------------------------------------ arrays

// An m by n array of class `cls` holding the first m n values of `v`.
cxArray* matrix(std::uint64_t m, std::uint64_t n, cxClassID cls, const std::vector<double>& v) {
    const std::size_t count = std::min<std::size_t>(v.size(), m * n);
    cxArray* a = nullptr;
    if (cls == cxLOGICAL_CLASS) {
        a = cxCreateLogicalMatrix(m, n);
        for (std::size_t k = 0; k < count; ++k) cxGetLogicals(a)[k] = v[k] != 0;
        return a;
    }
    a = cxCreateNumericMatrix(m, n, cls, cxREAL);
    for (std::size_t k = 0; k < count; ++k) {
        switch (cls) {
            case cxSINGLE_CLASS:
                static_cast<float*>(cxGetData(a))[k] = static_cast<float>(v[k]);
                break;
            case cxINT32_CLASS:
                static_cast<std::int32_t*>(cxGetData(a))[k] =
                    std::isfinite(v[k]) && std::fabs(v[k]) < 2e9 ? static_cast<std::int32_t>(v[k])
                                                                 : 0;
                break;
            default: static_cast<double*>(cxGetData(a))[k] = v[k];
        }
    }
    return a;
}

cxArray* scalar(double v) { return numora::cxCreateDoubleScalar(v); }

// An array that an input of `count` elements should not be.
cxArray* misfit(Source& s, std::uint64_t count) {
    std::vector<double> v(count + 1);
    for (double& x : v) x = s.value(0, 3);
    switch (s.pick(0, 10)) {
        case 0: return matrix(count, 1, cxINT32_CLASS, v);
        case 1: return matrix(count, 1, cxLOGICAL_CLASS, v);
        case 2: return numora::cxCreateString("abc");
        case 3: {
            cxArray* cell = cxCreateCellMatrix(1, 1);
            cxSetCell(cell, 0, scalar(1.0));
            return cell;
        }
        case 4: return matrix(count == 0 ? 0 : count - 1, 1, cxDOUBLE_CLASS, v);
        case 5: return matrix(count + 1, 1, cxDOUBLE_CLASS, v);
        case 6: return matrix(count, 1, cxSINGLE_CLASS, v);
        case 7: {
            const std::uint64_t dims[3] = {1, count, 2};
            return numora::cxCreateNumericArray(3, dims, cxDOUBLE_CLASS);
        }
        case 8: return cxCreateNumericMatrix(0, 0, cxDOUBLE_CLASS, cxREAL);
        case 9: return numora::cxCreateObject("RandStream");
        default: return nullptr;  // no input at all
    }
}

// ------------------------------------------------------------ one call

class Call {
public:
    explicit Call(Source& s) : s_(s) {}
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    ~Call() {
        if (stream_) numora::destroyStream(*stream_);
    }

    void build();
    void run();

private:
    Source& s_;
    std::vector<numora::ArrayPtr> owned_;
    std::array<const cxArray*, kInputCount + 1> inputs_{};
    std::optional<std::uint64_t> stream_;
    int inputCount_ = kInputCount, outputCount_ = kOutputCount;
    std::uint64_t N = 0, D = 0, K = 1;

    void set(int position, cxArray* a) {
        owned_.emplace_back(a);
        inputs_[slot(position)] = a;
    }
    cxClassID precision() { return s_.rarely(3) ? cxSINGLE_CLASS : cxDOUBLE_CLASS; }

    void data(bool regression);
    void rows();
    void criterion();
    void settings();
    void cost(bool regression);
    void stream();
};

void Call::data(bool regression) {
    // Few distinct values, so that nominal columns have few levels and
    // exact enumeration stays quick.
    std::vector<double> x = s_.values(N * D, -1, 3, 2);
    // Missing values, for the rows that surrogates route.
    if (s_.rarely(3)) {
        for (double& v : x) {
            if (s_.rarely(6)) v = std::numeric_limits<double>::quiet_NaN();
        }
    }
    const std::vector<double> y =
        regression ? s_.values(N, -4, 4) : s_.values(N, 0, static_cast<int>(K) - 1);
    const std::vector<double> w = s_.values(N, 0, 3);
    set(input::X, matrix(N, D, precision(), x));
    set(input::Y, matrix(N, 1, precision(), y));
    set(input::W, matrix(N, 1, precision(), w));
    std::vector<double> isCat(D);
    for (double& v : isCat) v = s_.bit();
    set(input::IsCat, matrix(1, D, cxLOGICAL_CLASS, isCat));
}

void Call::rows() {
    std::vector<double> r;
    switch (s_.pick(0, 3)) {
        case 0:
        case 1:
            for (std::uint64_t i = 0; i < N; ++i) r.push_back(static_cast<double>(i));
            break;
        case 2: break;  // no rows
        default:
            r = s_.values(static_cast<std::uint64_t>(s_.pick(0, 2 * kMaxRows)), 0,
                          N == 0 ? 0 : static_cast<int>(N) - 1);
    }
    // Rows may come in any shape: a row or a column.
    set(input::Rows,
        s_.bit() ? matrix(1, r.size(), cxDOUBLE_CLASS, r) : matrix(r.size(), 1, cxDOUBLE_CLASS, r));
}

void Call::criterion() {
    static constexpr std::array<const char*, 8> keywords = {"gini",  "gdi", "deviance", "twoing",
                                                            "error", "mse", "Gini",     ""};
    const int k = s_.pick(0, 9);
    if (k < 8) {
        set(input::CriterionArg, numora::cxCreateString(keywords[static_cast<std::size_t>(k)]));
        return;
    }
    // A custom criterion: one or two host functions, now and then unknown.
    static constexpr std::array<const char*, 4> names = {"fz_parent", "fz_kids", "", "fz_none"};
    cxArray* cell = cxCreateCellMatrix(1, 2);
    cxSetCell(cell, 0, numora::cxCreateString(s_.rarely(16) ? "fz_none" : "fz_parent"));
    cxSetCell(cell, 1, numora::cxCreateString(names[static_cast<std::size_t>(s_.pick(0, 3))]));
    set(input::CriterionArg, cell);
}

void Call::settings() {
    const int n = static_cast<int>(N), d = static_cast<int>(D);
    set(input::MinLeaf, scalar(s_.value(1, 4)));
    set(input::MinParent, scalar(s_.value(1, 10)));
    set(input::MaxSplits, scalar(s_.value(0, n + 1)));
    set(input::SampleSize, scalar(s_.value(d == 0 ? 0 : 1, d + (s_.rarely(32) ? 1 : 0))));
    set(input::SurrogateCount, scalar(s_.value(0, d)));
    set(input::MaxCat, scalar(s_.value(0, s_.rarely(32) ? 64 : 63)));
    set(input::AlgCat, scalar(s_.value(0, s_.rarely(32) ? 5 : 4)));
    set(input::RiskTolerance, scalar(s_.rarely(2) ? 0.0 : s_.value(0, 8) / 8));
    for (int flag : {input::CurvatureFlag, input::InteractionFlag, input::ChisqFlag}) {
        set(flag, s_.rarely(32) ? scalar(1.0) : numora::cxCreateLogicalScalar(s_.bit()));
    }
    // Valid runs stay silent: only refused print levels are drawn.
    set(input::Verbosity, scalar(s_.rarely(32) ? s_.odd() : 0.0));
}

void Call::cost(bool regression) {
    if (!s_.rarely(3)) {
        set(input::CostArg, cxCreateNumericMatrix(0, 0, cxDOUBLE_CLASS, cxREAL));
        return;
    }
    // Mostly K by K, now and then a size too small or too large; in the
    // precision of the weights, now and then in the other one.
    const std::uint64_t k = regression ? 1 : K + (s_.rarely(8) ? 1 : 0) - (s_.rarely(8) ? 1 : 0);
    std::vector<double> c = s_.values(k * k, 0, 4, 16);
    for (std::uint64_t i = 0; i < k; ++i) c[i * (k + 1)] = 0.0;
    const bool weightsSingle = cxGetClassID(inputs_[slot(input::W)]) == cxSINGLE_CLASS;
    const bool single = s_.rarely(16) ? !weightsSingle : weightsSingle;
    set(input::CostArg, matrix(k, k, single ? cxSINGLE_CLASS : cxDOUBLE_CLASS, c));
}

void Call::stream() {
    switch (s_.pick(0, 3)) {
        case 0:
        case 1: set(input::StreamArg, cxCreateNumericMatrix(0, 0, cxDOUBLE_CLASS, cxREAL)); break;
        case 2:
            stream_ = numora::createStream(static_cast<std::uint64_t>(s_.pick(0, 1000)));
            set(input::StreamArg, numora::createStreamObject(*stream_));
            break;
        default: set(input::StreamArg, scalar(3.0));
    }
}

void Call::build() {
    // The sizes come first, from the last bytes, so that short inputs too
    // ask for outputs and carry data.
    outputCount_ = s_.rarely(32) ? kOutputCount + 1 : kOutputCount - s_.pick(0, kOutputCount);
    inputCount_ = s_.rarely(64) ? (s_.bit() ? kInputCount - 1 : kInputCount + 1) : kInputCount;
    N = static_cast<std::uint64_t>(s_.pick(0, kMaxRows));
    D = static_cast<std::uint64_t>(s_.pick(0, kMaxPredictors));
    K = static_cast<std::uint64_t>(s_.pick(1, kMaxClasses));
    criterion();
    const cxArray* crit = inputs_[slot(input::CriterionArg)];
    const bool regression = cxGetClassID(crit) == cxCHAR_CLASS && cxGetString(crit) == "mse";
    data(regression);
    rows();
    settings();
    cost(regression);
    stream();
    // Now and then an input of the wrong kind in place of the right one.
    for (const Argument& a : kInputs) {
        if (s_.rarely(40)) {
            const std::uint64_t count = cxGetNumberOfElements(inputs_[slot(a.position)]);
            cxArray* bad = misfit(s_, count);
            if (bad != nullptr) owned_.emplace_back(bad);
            inputs_[slot(a.position)] = bad;
        }
    }
}

void Call::run() {
    try {
        arbolin::frontend::checkModuleInputs(inputCount_, inputs_.data());
    } catch (const ContractViolation&) {
        ++outcomes.refused;
        return;
    }
    std::array<cxArray*, kOutputCount + 1> outputs{};
    try {
        calyxFunction(outputCount_, outputs.data(), inputCount_, inputs_.data());
        ++outcomes.grown;
        if (outputs[0] != nullptr) outcomes.nodes += cxGetN(outputs[0]);
    } catch (const numora::Exception&) {
        // The module's and the host's own errors are answers too.
        ++outcomes.hostErrors;
    }
    for (cxArray* a : outputs) {
        if (a != nullptr) cxDestroyArray(a);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setUpHost();
    std::atexit(printOutcomes);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider provider(data, size);
    Source source(provider);
    numora::resetDefaultStream();
    Call call(source);
    call.build();
    call.run();
    return 0;
}
