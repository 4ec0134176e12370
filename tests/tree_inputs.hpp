// The twenty inputs of a tree call, built in C++ for tests that go through
// the host's module loader.
#pragma once

#include <algorithm>
#include <cstring>
#include <array>
#include <string>
#include <vector>

#include "host/numora_host.hpp"

namespace arbolin::testing {

struct TreeCall {
    std::vector<numora::ArrayPtr> owned;
    std::array<const cxArray*, 20> inputs{};

    // X is N by D, column-major; Y and W have N values. Every row, all
    // predictors, criterion and print level as given.
    TreeCall(std::uint64_t N, std::uint64_t D, const std::vector<double>& x,
             const std::vector<double>& y, const std::string& criterion,
             std::uint64_t verbosity = 0) {
        std::vector<double> rows(N);
        for (std::uint64_t i = 0; i < N; ++i) rows[i] = static_cast<double>(i);
        set(0, matrix(N, D, x));
        set(1, matrix(N, 1, y));
        set(2, matrix(N, 1, std::vector<double>(N, 1.0)));
        set(3, matrix(1, N, rows));
        set(4, cxCreateLogicalMatrix(1, D));
        set(5, numora::cxCreateString(criterion));
        set(6, numora::cxCreateDoubleScalar(1));                       // MinLeaf
        set(7, numora::cxCreateDoubleScalar(10));                      // MinParent
        set(8, numora::cxCreateDoubleScalar(static_cast<double>(N)));  // MaxSplits
        set(9, numora::cxCreateDoubleScalar(static_cast<double>(D)));  // SampleSize
        set(10, numora::cxCreateDoubleScalar(0));                      // SurrogateCount
        set(11, numora::cxCreateDoubleScalar(10));                     // MaxCat
        set(12, numora::cxCreateDoubleScalar(0));                      // AlgCat
        set(13, cxCreateNumericMatrix(0, 0, cxDOUBLE_CLASS, cxREAL));  // no costs
        set(14, numora::cxCreateDoubleScalar(0));                      // RiskTolerance
        set(15, numora::cxCreateLogicalScalar(false));
        set(16, numora::cxCreateLogicalScalar(false));
        set(17, numora::cxCreateLogicalScalar(false));
        set(18, cxCreateNumericMatrix(0, 0, cxDOUBLE_CLASS, cxREAL));  // default stream
        set(19, numora::cxCreateDoubleScalar(static_cast<double>(verbosity)));
    }

    void set(int position, cxArray* a) {
        owned.emplace_back(a);
        inputs[position] = a;
    }

    static cxArray* matrix(std::uint64_t m, std::uint64_t n, const std::vector<double>& data) {
        cxArray* a = cxCreateNumericMatrix(m, n, cxDOUBLE_CLASS, cxREAL);
        std::copy(data.begin(), data.end(), static_cast<double*>(cxGetData(a)));
        return a;
    }
};

// The outputs of one call, destroyed with the object.
struct TreeOutputs {
    std::array<cxArray*, 22> arrays{};
    ~TreeOutputs() {
        for (cxArray* a : arrays) cxDestroyArray(a);
    }
};

// The same class, shape and bytes, cells element by element.
inline bool sameArray(const cxArray* a, const cxArray* b) {
    if (cxGetClassID(a) != cxGetClassID(b) || cxGetM(a) != cxGetM(b) || cxGetN(a) != cxGetN(b)) {
        return false;
    }
    const std::uint64_t count = cxGetNumberOfElements(a);
    if (cxGetClassID(a) == cxCELL_CLASS) {
        for (std::uint64_t i = 0; i < count; ++i) {
            const cxArray* ea = cxGetCell(a, i);
            const cxArray* eb = cxGetCell(b, i);
            if ((ea == nullptr) != (eb == nullptr) || (ea != nullptr && !sameArray(ea, eb))) {
                return false;
            }
        }
        return true;
    }
    const std::size_t bytes = cxGetClassID(a) == cxDOUBLE_CLASS   ? 8
                              : cxGetClassID(a) == cxSINGLE_CLASS ? 4
                                                                  : 1;
    return count == 0 || std::memcmp(cxGetData(a), cxGetData(b), count * bytes) == 0;
}

}  // namespace arbolin::testing
