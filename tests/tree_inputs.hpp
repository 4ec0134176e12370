// The C++ fits' shared pieces: inputs by contract position, outputs, fits on
// some threads, a Gini criterion as host functions, printed text.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <oneapi/tbb/global_control.h>

#include "gateway/contract.hpp"
#include "host/numora_host.hpp"

namespace arbolin::testing {

namespace in = contract::input;
namespace out = contract::output;

struct TreeCall {
    std::vector<numora::ArrayPtr> owned;
    std::array<const cxArray*, contract::kInputCount> inputs{};

    // X is N by D, column-major; Y and W have N values. Every row, all
    // predictors, criterion and print level as given.
    TreeCall(std::uint64_t N, std::uint64_t D, const std::vector<double>& x,
             const std::vector<double>& y, const std::string& criterion,
             std::uint64_t verbosity = 0) {
        std::vector<double> rows(N);
        for (std::uint64_t i = 0; i < N; ++i) rows[i] = static_cast<double>(i);
        set(in::X, matrix(N, D, x));
        set(in::Y, matrix(N, 1, y));
        set(in::W, matrix(N, 1, std::vector<double>(N, 1.0)));
        set(in::Rows, matrix(1, N, rows));
        set(in::IsCat, cxCreateLogicalMatrix(1, D));
        set(in::CriterionArg, numora::cxCreateString(criterion));
        set(in::MinLeaf, 1);
        set(in::MinParent, 10);
        set(in::MaxSplits, static_cast<double>(N));
        set(in::SampleSize, static_cast<double>(D));
        set(in::SurrogateCount, 0.0);
        set(in::MaxCat, 10);
        set(in::AlgCat, 0.0);
        set(in::RiskTolerance, 0.0);
        set(in::Verbosity, static_cast<double>(verbosity));
        for (in::Position flag : {in::CurvatureFlag, in::InteractionFlag, in::ChisqFlag}) {
            set(flag, numora::cxCreateLogicalScalar(false));
        }
        // No costs, the default stream.
        for (in::Position empty : {in::CostArg, in::StreamArg}) {
            set(empty, cxCreateNumericMatrix(0, 0, cxDOUBLE_CLASS, cxREAL));
        }
    }

    void set(in::Position position, cxArray* a) {
        owned.emplace_back(a);
        inputs[contract::slot(position)] = a;
    }
    void set(in::Position position, double scalar) {
        set(position, numora::cxCreateDoubleScalar(scalar));
    }
    // Nominal predictors by 0-based column.
    void nominal(std::uint64_t D, std::initializer_list<std::uint64_t> columns) {
        cxArray* isCat = cxCreateLogicalMatrix(1, D);
        for (std::uint64_t j : columns) cxGetLogicals(isCat)[j] = true;
        set(in::IsCat, isCat);
    }

    static cxArray* matrix(std::uint64_t m, std::uint64_t n, const std::vector<double>& data) {
        cxArray* a = cxCreateNumericMatrix(m, n, cxDOUBLE_CLASS, cxREAL);
        std::copy(data.begin(), data.end(), static_cast<double*>(cxGetData(a)));
        return a;
    }
};

// 60 rows, three classes, for criteria of host functions: a numeric
// predictor, a nominal one of 9 levels (PCA) and a noisy copy of the first,
// some values missing; MinParent 4, two surrogates, costs when asked (then the
// column searches run on worker threads too, not only the surrogates).
inline TreeCall sixtyRows(bool costs) {
    const std::uint64_t N = 60, D = 3;
    std::mt19937_64 rng(23);
    std::uniform_real_distribution<double> unit(0, 1);
    std::vector<double> x(N * D), y(N);
    for (std::uint64_t i = 0; i < N; ++i) {
        x[i] = std::round(unit(rng) * 20) / 20;
        x[N + i] = static_cast<double>(1 + i % 9);
        x[2 * N + i] = x[i] + 0.2 * unit(rng);
        const double s = x[i] + 0.15 * static_cast<double>(i % 9 % 4) + 0.3 * unit(rng);
        y[i] = s < 0.6 ? 0 : (s < 1.1 ? 1 : 2);
    }
    for (double& v : x) {
        if (unit(rng) < 0.08) v = std::nan("");
    }
    TreeCall call(N, D, x, y, "gini");
    call.nominal(D, {1});
    call.set(in::MinParent, 4);
    call.set(in::SurrogateCount, 2);
    call.set(in::AlgCat, 3);  // PCA
    if (costs) call.set(in::CostArg, TreeCall::matrix(3, 3, {0, 1, 3, 1, 0, 1, 2, 1, 0}));
    return call;
}

// The outputs of one call, destroyed with the object.
struct TreeOutputs {
    std::array<cxArray*, contract::kOutputCount> arrays{};
    ~TreeOutputs() {
        for (cxArray* a : arrays) cxDestroyArray(a);
    }
    const cxArray* operator[](out::Position position) const {
        return arrays[contract::slot(position)];
    }
};

// One fit; with `threads`, on at most that many threads.
inline void fit(const numora::Module& module, const TreeCall& call, TreeOutputs& outputs,
                std::size_t threads = 0) {
    auto run = [&] {
        module.call(contract::kOutputCount, outputs.arrays.data(), contract::kInputCount,
                    const_cast<const cxArray**>(call.inputs.data()));
    };
    if (threads == 0) return run();
    tbb::global_control limit(tbb::global_control::max_allowed_parallelism, threads);
    run();
}

// The same class, shape and bytes, cells element by element.
inline bool sameArray(const cxArray* a, const cxArray* b) {
    if (cxGetClassID(a) != cxGetClassID(b) || cxGetM(a) != cxGetM(b) || cxGetN(a) != cxGetN(b)) {
        return false;
    }
    const std::uint64_t count = cxGetNumberOfElements(a);
    if (cxGetClassID(a) == cxCELL_CLASS) {
        for (std::uint64_t i = 0; i < count; ++i) {
            const cxArray *ea = cxGetCell(a, i), *eb = cxGetCell(b, i);
            if (ea != eb && (ea == nullptr || eb == nullptr || !sameArray(ea, eb))) return false;
        }
        return true;
    }
    const std::size_t bytes = cxGetClassID(a) == cxDOUBLE_CLASS   ? 8
                              : cxGetClassID(a) == cxSINGLE_CLASS ? 4
                                                                  : 1;
    return count == 0 || std::memcmp(cxGetData(a), cxGetData(b), count * bytes) == 0;
}

// How many elements of a cell are set and not empty.
inline std::uint64_t filled(const cxArray* cell) {
    std::uint64_t count = 0;
    for (std::uint64_t i = 0; i < cxGetNumberOfElements(cell); ++i) {
        const cxArray* a = cxGetCell(cell, i);
        count += a != nullptr && !cxIsEmpty(a);
    }
    return count;
}

// The first output that differs, 1-based, or 0.
inline int firstDifference(const TreeOutputs& a, const TreeOutputs& b) {
    for (int k = 0; k < contract::kOutputCount; ++k) {
        if (!sameArray(a.arrays[k], b.arrays[k])) return k + 1;
    }
    return 0;
}

// Gini of a K by 1 column of class weights, with the arithmetic of the
// built-in criterion: sums in order from the first entry.
inline double gini(const cxArray* v) {
    const double* p = static_cast<const double*>(cxGetData(v));
    double s = 0, q = 0;
    for (std::uint64_t i = 0; i < cxGetM(v); ++i) s += p[i];
    for (std::uint64_t i = 0; i < cxGetM(v); ++i) q += (p[i] / s) * (p[i] / s);
    return (1 - q) * s;
}

// The criterion input that names host functions.
inline cxArray* functionNames(const char* parent, const char* kids) {
    cxArray* cell = cxCreateCellMatrix(1, 2);
    cxSetCell(cell, 0, numora::cxCreateString(parent));
    cxSetCell(cell, 1, numora::cxCreateString(kids));
    return cell;
}

// A host function registered for the life of the object.
class Registered {
public:
    Registered(const std::string& name, numora::HostFunction fn) : name_(name) {
        numora::registerFunction(name, std::move(fn));
    }
    ~Registered() { numora::unregisterFunction(name_); }

private:
    std::string name_;
};

// Printed text, from whichever thread prints, for the life of the object.
class Printed {
public:
    Printed() {
        previous_ = numora::setPrintSink([this](std::string_view text) {
            std::lock_guard<std::mutex> lock(mutex_);
            text_ += text;
        });
    }
    ~Printed() { numora::setPrintSink(std::move(previous_)); }
    std::string take() {
        std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(text_, std::string());
    }

private:
    numora::PrintSink previous_;
    std::mutex mutex_;
    std::string text_;
};

}  // namespace arbolin::testing
