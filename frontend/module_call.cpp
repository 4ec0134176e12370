#include "frontend/module_call.hpp"

#include <cmath>
#include <cstdlib>
#include <stdexcept>

namespace arbolin::frontend {

namespace {

using namespace contract::input;

// Most levels searched exhaustively without --allow-long-search: 2^23
// partitions take well under a second at one node.
constexpr std::uint64_t kMostExactLevels = 24;
// Partitions per second of one core, measured with three classes (24 levels:
// 0.65 s at the root); more classes cost more per partition.
constexpr double kPartitionsPerSecond = 1.3e7;

std::string roughDuration(double seconds) {
    if (seconds < 120) return formatShort(seconds, 2) + " seconds";
    if (seconds < 2 * 3600) return formatShort(seconds / 60, 2) + " minutes";
    if (seconds < 2 * 86400) return formatShort(seconds / 3600, 2) + " hours";
    if (seconds < 2 * 31557600) return formatShort(seconds / 86400, 2) + " days";
    return formatShort(seconds / 31557600, 2) + " years";
}

cxArray* realMatrix(std::uint64_t m, std::uint64_t n, const std::vector<double>& data,
                    bool single) {
    cxArray* a = cxCreateNumericMatrix(m, n, single ? cxSINGLE_CLASS : cxDOUBLE_CLASS, cxREAL);
    for (std::uint64_t i = 0; i < data.size(); ++i) {
        if (single) {
            static_cast<float*>(cxGetData(a))[i] = static_cast<float>(data[i]);
        } else {
            static_cast<double*>(cxGetData(a))[i] = data[i];
        }
    }
    return a;
}

}  // namespace

Settings fitSettings(const TrainingData& data, const RawOptions& options) {
    Settings settings = Settings::resolve(options, data.shape());
    settings.set("response", data.response);
    checkSearchCost(data, settings);
    if (settings.has("cost") && !data.classification) {
        failOption("cost", "a regression tree takes no costs");
    }
    return settings;
}

void checkSearchCost(const TrainingData& data, const Settings& settings) {
    // Exact enumeration runs only for three or more classes.
    if (!data.classification || data.classes.size() < 3) return;
    if (settings.flag("allow-long-search")) return;
    // The method is kept as its position in auto|exact|pull-left|pca|ova.
    const double code = settings.number("nominal-method");
    if (code != 0 && code != 1) return;
    const bool exact = code == 1;
    const double maxCat = settings.number("max-cat");
    for (const Predictor& p : data.predictors) {
        const std::uint64_t L = p.levels.size();
        if (p.kind != PredictorKind::Nominal || L <= kMostExactLevels) continue;
        if (!exact && static_cast<double>(L) > maxCat) continue;
        const double partitions = std::ldexp(1.0, static_cast<int>(L) - 1) - 1;
        const double seconds =
            partitions / kPartitionsPerSecond * (static_cast<double>(data.classes.size()) / 3.0);
        const std::string problem =
            "exact enumeration of " + p.name + " (" + std::to_string(L) + " levels, " +
            std::to_string(data.classes.size()) + " classes) tries " + formatShort(partitions, 4) +
            " partitions at each node, about " + roughDuration(seconds) + " at the root alone; " +
            (exact ? "choose --nominal-method pull-left, pca or ova"
                   : "lower --max-cat below " + std::to_string(L)) +
            ", or add --allow-long-search to run it anyway";
        failOption(exact ? "nominal-method" : "max-cat", problem);
    }
}

// ------------------------------------------------------------ the call

void ModuleInputs::set(int position, cxArray* array) {
    owned_.emplace_back(array);
    arrays_[contract::slot(position)] = array;
}

ModuleInputs::ModuleInputs(const TrainingData& data, const Settings& settings,
                           const std::vector<double>& cost, bool single) {
    const std::uint64_t N = data.rows;
    const std::uint64_t D = data.predictors.size();
    set(X, realMatrix(N, D, data.x, single));
    set(Y, realMatrix(N, 1, data.y, single));
    set(W, realMatrix(N, 1, data.w, single));
    std::vector<double> rows(N);
    for (std::uint64_t i = 0; i < N; ++i) rows[i] = static_cast<double>(i);
    set(Rows, realMatrix(1, N, rows, false));
    cxArray* isCat = cxCreateLogicalMatrix(1, D);
    for (std::uint64_t j = 0; j < D; ++j) {
        cxGetLogicals(isCat)[j] = data.predictors[j].kind == PredictorKind::Nominal;
    }
    set(IsCat, isCat);
    // The module reads the costs in the class of the weights.
    const std::uint64_t K = cost.empty() ? 0 : data.classes.size();
    set(CostArg, realMatrix(K, K, cost, single));
    if (settings.has("seed")) {
        stream_ = numora::createStream(static_cast<std::uint64_t>(settings.number("seed")));
        set(StreamArg, numora::createStreamObject(*stream_));
    } else {
        set(StreamArg, cxCreateNumericMatrix(0, 0, cxDOUBLE_CLASS, cxREAL));  // the default stream
    }
    // Every other input is a setting, made from the option table.
    for (const OptionRow& option : fitOptions()) {
        if (option.input == 0 || arrays_[contract::slot(option.input)] != nullptr) continue;
        switch (option.kind) {
            case OptionKind::Count:
            case OptionKind::Real:
            case OptionKind::Code:
                set(option.input, numora::cxCreateDoubleScalar(settings.number(option.name)));
                break;
            case OptionKind::Flag:
                set(option.input, numora::cxCreateLogicalScalar(settings.flag(option.name)));
                break;
            case OptionKind::Keyword:
                set(option.input, numora::cxCreateString(settings.text(option.name)));
                break;
            default: throw std::logic_error("no way to pass option " + std::string(option.name));
        }
    }
    for (const cxArray* a : arrays_) {
        if (a == nullptr) throw std::logic_error("a module input was left unset");
    }
}

ModuleInputs::~ModuleInputs() {
    if (stream_) numora::destroyStream(*stream_);
}

std::string modulePath(const std::string& fallback) {
    const char* path = std::getenv("ARBOLIN_MODULE");
    return path != nullptr && *path != '\0' ? path : fallback;
}

std::vector<numora::ArrayPtr> growTree(const numora::Module& module, ModuleInputs& inputs) {
    std::array<cxArray*, contract::kOutputCount> raw{};
    try {
        module.call(contract::kOutputCount, raw.data(), contract::kInputCount, inputs.arrays());
    } catch (...) {
        for (cxArray* a : raw) cxDestroyArray(a);
        throw;
    }
    std::vector<numora::ArrayPtr> outputs;
    for (cxArray* a : raw) outputs.emplace_back(a);
    return outputs;
}

}  // namespace arbolin::frontend
