#include "cli/module_inputs.hpp"

#include <stdexcept>

namespace arbolin::cli {

namespace {

enum Input : int { kX = 1, kY, kW, kRows, kIsCat, kCost = 14, kStream = 19 };

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

void ModuleInputs::set(int position, cxArray* array) {
    owned_.emplace_back(array);
    arrays_[position - 1] = array;
}

ModuleInputs::ModuleInputs(const TrainingData& data, const Settings& settings,
                           const std::vector<double>& cost, bool single) {
    const std::uint64_t N = data.rows;
    const std::uint64_t D = data.predictors.size();
    set(kX, realMatrix(N, D, data.x, single));
    set(kY, realMatrix(N, 1, data.y, single));
    set(kW, realMatrix(N, 1, data.w, single));
    std::vector<double> rows(N);
    for (std::uint64_t i = 0; i < N; ++i) rows[i] = static_cast<double>(i);
    set(kRows, realMatrix(1, N, rows, false));
    cxArray* isCat = cxCreateLogicalMatrix(1, D);
    for (std::uint64_t j = 0; j < D; ++j) {
        cxGetLogicals(isCat)[j] = data.predictors[j].kind == PredictorKind::Nominal;
    }
    set(kIsCat, isCat);
    // The module reads the costs in the class of the weights.
    const std::uint64_t K = cost.empty() ? 0 : data.classes.size();
    set(kCost, realMatrix(K, K, cost, single));
    if (settings.has("seed")) {
        stream_ = numora::createStream(static_cast<std::uint64_t>(settings.number("seed")));
        set(kStream, numora::createStreamObject(*stream_));
    } else {
        set(kStream, cxCreateNumericMatrix(0, 0, cxDOUBLE_CLASS, cxREAL));  // the default stream
    }
    // Every other input is a setting, made from the option table.
    for (const OptionRow& option : fitOptions()) {
        if (option.input == 0 || arrays_[option.input - 1] != nullptr) continue;
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

}  // namespace arbolin::cli
