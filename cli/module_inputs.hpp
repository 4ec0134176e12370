// The twenty host arrays that one call of the module takes, made the way
// the host's own model-fitting code makes them.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "cli/settings.hpp"
#include "cli/training_data.hpp"
#include "host/numora_host.hpp"

namespace arbolin::cli {

class ModuleInputs {
public:
    // `cost` is K by K column-major, or empty. With `single`, predictors,
    // response, weights and costs are single precision.
    ModuleInputs(const TrainingData& data, const Settings& settings,
                 const std::vector<double>& cost, bool single);
    ~ModuleInputs();
    ModuleInputs(const ModuleInputs&) = delete;
    ModuleInputs& operator=(const ModuleInputs&) = delete;

    const cxArray** arrays() noexcept { return arrays_.data(); }
    const cxArray* at(int position) const { return arrays_[position - 1]; }  // 1-based

private:
    std::vector<numora::ArrayPtr> owned_;
    std::array<const cxArray*, 20> arrays_{};
    std::optional<std::uint64_t> stream_;

    void set(int position, cxArray* array);  // 1-based
};

}  // namespace arbolin::cli
