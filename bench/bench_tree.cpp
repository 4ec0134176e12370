// Times a full tree on deterministic synthetic data: a 3-class "gini" tree
// and an "mse" tree, MinParent 10, MinLeaf 1, all predictors, no surrogates.
//
//   bench_tree [rows] [predictors] [gini|mse|both] [module path]
#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "host/numora_host.hpp"

namespace {

using numora::ArrayPtr;

ArrayPtr scalar(double v) { return ArrayPtr(numora::cxCreateDoubleScalar(v)); }
ArrayPtr flag(bool v) { return ArrayPtr(numora::cxCreateLogicalScalar(v)); }

ArrayPtr matrix(std::uint64_t m, std::uint64_t n, const std::vector<double>& data) {
    ArrayPtr a(cxCreateNumericMatrix(m, n, cxDOUBLE_CLASS, cxREAL));
    std::copy(data.begin(), data.end(), static_cast<double*>(cxGetData(a.get())));
    return a;
}

double peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::uint64_t N = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1000000;
    const std::uint64_t D = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 20;
    const std::string which = argc > 3 ? argv[3] : "both";
    const std::string path = argc > 4 ? argv[4] : ARBOLIN_MODULE_PATH;

    // Continuous predictors; the response depends on a few of them, plus noise.
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::normal_distribution<double> noise(0.0, 0.3);
    std::vector<double> x(N * D);
    for (double& v : x) v = unit(rng);
    std::vector<double> response(N), classes(N), rows(N);
    for (std::uint64_t i = 0; i < N; ++i) {
        const double s = std::sin(6 * x[i]) + x[N + i] * x[2 * N + i] + noise(rng);
        response[i] = s;
        classes[i] = s < 0.2 ? 0 : (s < 0.8 ? 1 : 2);
        rows[i] = static_cast<double>(i);
    }

    numora::Module module(path);
    ArrayPtr X = matrix(N, D, x);
    ArrayPtr W = matrix(N, 1, std::vector<double>(N, 1.0));
    ArrayPtr R = matrix(1, N, rows);
    ArrayPtr isCat(cxCreateLogicalMatrix(1, D));
    ArrayPtr empty(cxCreateNumericMatrix(0, 0, cxDOUBLE_CLASS, cxREAL));
    const double before = peakMegabytes();
    std::printf("data: %llu rows x %llu predictors (%.0f MB resident)\n",
                static_cast<unsigned long long>(N), static_cast<unsigned long long>(D), before);

    for (const char* criterion : {"gini", "mse"}) {
        if (which != "both" && which != criterion) {
            continue;
        }
        const bool regression = std::string(criterion) == "mse";
        ArrayPtr Y = matrix(N, 1, regression ? response : classes);
        ArrayPtr crit(numora::cxCreateString(criterion));
        ArrayPtr minLeaf = scalar(1), minParent = scalar(10), maxSplits = scalar(N),
                 sample = scalar(static_cast<double>(D)), zero = scalar(0), maxCat = scalar(10),
                 risk = scalar(0), no = flag(false);
        const cxArray* inputs[20] = {X.get(),         Y.get(),      W.get(),       R.get(),
                                     isCat.get(),     crit.get(),   minLeaf.get(), minParent.get(),
                                     maxSplits.get(), sample.get(), zero.get(),    maxCat.get(),
                                     zero.get(),      empty.get(),  risk.get(),    no.get(),
                                     no.get(),        no.get(),     empty.get(),   zero.get()};
        cxArray* outputs[1] = {nullptr};
        const auto start = std::chrono::steady_clock::now();
        module.call(1, outputs, 20, inputs);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const std::uint64_t nodes = cxGetN(outputs[0]);
        cxDestroyArray(outputs[0]);
        std::printf("%-5s fit %.2f s, %llu nodes, peak resident %.0f MB\n", criterion, seconds,
                    static_cast<unsigned long long>(nodes), peakMegabytes());
    }
    return 0;
}
