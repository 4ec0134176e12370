#include "cli/module_call.hpp"

#include <array>
#include <cstdlib>

#include "cli/outputs.hpp"

namespace arbolin::cli {

std::string modulePath() {
    const char* path = std::getenv("ARBOLIN_MODULE");
    return path != nullptr && *path != '\0' ? path : ARBOLIN_MODULE_PATH;
}

std::vector<numora::ArrayPtr> growTree(ModuleInputs& inputs) {
    const numora::Module module(modulePath());
    std::array<cxArray*, kOutputCount> raw{};
    try {
        module.call(kOutputCount, raw.data(), 20, inputs.arrays());
    } catch (...) {
        for (cxArray* a : raw) cxDestroyArray(a);
        throw;
    }
    std::vector<numora::ArrayPtr> outputs;
    for (cxArray* a : raw) outputs.emplace_back(a);
    return outputs;
}

}  // namespace arbolin::cli
