// One call of the module: the options settled against the data, the
// refusal of a search that could not finish, the twenty host arrays made
// the way the host's own model-fitting code makes them, and the call.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "frontend/data.hpp"
#include "frontend/options.hpp"
#include "gateway/contract.hpp"
#include "host/numora_host.hpp"

namespace arbolin::frontend {

// The options checked against the data, the response's name set, the cost
// of the search checked, and costs refused for a regression tree.
Settings fitSettings(const TrainingData& data, const RawOptions& options);

// Exact enumeration tries 2^(L-1) - 1 partitions of L levels at every
// node, which is hours from about 35 levels on. Throws UserError naming
// --nominal-method or --max-cat, with the partition count and a rough time
// for the root, unless --allow-long-search is given.
void checkSearchCost(const TrainingData& data, const Settings& settings);

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

private:
    std::vector<numora::ArrayPtr> owned_;
    std::array<const cxArray*, contract::kInputCount> arrays_{};
    std::optional<std::uint64_t> stream_;

    void set(int position, cxArray* array);  // 1-based
};

// $ARBOLIN_MODULE, or `fallback`: where the front end finds the module.
std::string modulePath(const std::string& fallback);

// All twenty-two outputs. Errors of the host and the module pass as
// numora::Exception, Ctrl-C as numora::Interrupt.
std::vector<numora::ArrayPtr> growTree(const numora::Module& module, ModuleInputs& inputs);

}  // namespace arbolin::frontend
