// Host functions called by name from the module. The custom split criterion
// may call them from worker threads, so lookups share a lock and each call
// runs on a copy of the function, outside the lock.
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <utility>

#include "host/internal.hpp"

namespace {

// Raises again the exception held by its one input, an exception object.
void throwTrapped(int, cxArray**, int nin, cxArray** inputs) {
    std::exception_ptr error;
    if (nin >= 1 && inputs != nullptr) error = numora::cxGetException(inputs[0]);
    if (!error) numora::detail::raise("numora:function:throw", "badInput");
    std::rethrow_exception(error);
}

struct Registry {
    std::shared_mutex mutex;
    std::unordered_map<std::string, numora::HostFunction> functions{{"throw", throwTrapped}};
};

// Never destroyed: a worker may still call in while the process exits.
Registry& registry() {
    static Registry& r = *new Registry;
    return r;
}

}  // namespace

namespace numora {

void registerFunction(const std::string& name, HostFunction fn) {
    if (!fn) {
        unregisterFunction(name);
        return;
    }
    std::unique_lock lock(registry().mutex);
    registry().functions.insert_or_assign(name, std::move(fn));
}

void unregisterFunction(const std::string& name) {
    std::unique_lock lock(registry().mutex);
    registry().functions.erase(name);
}

}  // namespace numora

void calyxCallNumora(int nout, cxArray** outputs, int nin, cxArray** inputs, const char* name) {
    const std::string key = name ? name : "";
    numora::HostFunction fn;
    {
        std::shared_lock lock(registry().mutex);
        auto it = registry().functions.find(key);
        if (it != registry().functions.end()) fn = it->second;
    }
    if (!fn) numora::detail::raise("numora:function", "unknown", {key});
    fn(nout, outputs, nin, inputs);
}

cxArray* calyxCallNumoraWithTrap(int nout, cxArray** outputs, int nin, cxArray** inputs,
                                 const char* name) {
    try {
        calyxCallNumora(nout, outputs, nin, inputs, name);
        return nullptr;
    } catch (...) {
        return numora::detail::makeExceptionArray(std::current_exception()).release();
    }
}
