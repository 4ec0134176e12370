// Random streams: a table of live streams found by number, the object by
// which callers name one, and the draw of k distinct integers from 1..n.
// A handle carries the generation of the entry it was made for, so a handle
// kept past its stream's destruction derefs to null instead of to a stranger.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/internal.hpp"

namespace lotstream {

class Stream {
public:
    explicit Stream(std::uint64_t seed) : engine_(seed) {}
    std::uint64_t next() { return engine_(); }
    void reseed(std::uint64_t seed) { engine_.seed(seed); }

private:
    std::mt19937_64 engine_;
};

}  // namespace lotstream

namespace vellum::contextmgr {

ResourceTable::~ResourceTable() = default;

}  // namespace vellum::contextmgr

namespace {

using vellum::contextmgr::Handle;

constexpr std::uint64_t kDefaultSeed = 5489;

class StreamTable final : public vellum::contextmgr::ResourceTable {
public:
    StreamTable() : defaultId_(add(kDefaultSeed)) {}

    Handle find(std::uint64_t id) const override {
        std::lock_guard lock(mutex_);
        auto it = live_.find(id);
        if (it == live_.end()) return Handle{id, 0};  // generation 0 is never issued
        return Handle{id, it->second.generation};
    }

    lotstream::Stream* deref(Handle handle) const override {
        std::lock_guard lock(mutex_);
        auto it = live_.find(handle.id);
        if (it == live_.end() || it->second.generation != handle.generation) return nullptr;
        return it->second.stream.get();
    }

    std::uint64_t add(std::uint64_t seed) {
        auto stream = std::make_unique<lotstream::Stream>(seed);
        std::lock_guard lock(mutex_);
        const std::uint64_t id = nextId_++;
        live_.emplace(id, Entry{nextGeneration_++, std::move(stream)});
        return id;
    }

    void remove(std::uint64_t id) {
        if (id == defaultId_) return;  // the default stream lives as long as the host
        std::unique_ptr<lotstream::Stream> doomed;
        std::lock_guard lock(mutex_);
        auto it = live_.find(id);
        if (it == live_.end()) return;
        doomed = std::move(it->second.stream);
        live_.erase(it);
    }

    std::uint64_t defaultId() const { return defaultId_; }

private:
    struct Entry {
        std::uint64_t generation;
        std::unique_ptr<lotstream::Stream> stream;
    };

    mutable std::mutex mutex_;
    std::unordered_map<std::uint64_t, Entry> live_;
    std::uint64_t nextId_ = 1;  // 0 is never a stream
    std::uint64_t nextGeneration_ = 1;
    const std::uint64_t defaultId_;
};

// Never destroyed: worker threads may still hold handles while the process exits.
StreamTable& table() {
    static StreamTable& t = *new StreamTable;
    return t;
}

// The default stream is seeded when the runtime loads, not at first use.
[[maybe_unused]] const bool tableReady = (table(), true);

}  // namespace

vellum::contextmgr::ResourceTable* knownLotstreams() { return &table(); }

StreamHandle lotGetDefaultStream() {
    StreamTable& t = table();
    StreamHandle h;
    h.table = &t;
    h.handle = t.find(t.defaultId());
    h.stream = t.deref(h.handle);
    return h;
}

namespace vellum::contextmgr {

void raiseNullResource() {
    NullResource error;
    cxErrorMsgId(error);
    throw error;  // not reached: the raiser throws
}

}  // namespace vellum::contextmgr

namespace numora {

std::uint64_t createStream(std::uint64_t seed) { return table().add(seed); }

void destroyStream(std::uint64_t id) { table().remove(id); }

void resetDefaultStream(std::uint64_t seed) {
    StreamTable& t = table();
    // Reseeded in place, so cached pointers to the default stream stay valid.
    t.deref(t.find(t.defaultId()))->reseed(seed);
}

// An object of class "RandStream" whose property "StreamID" is its number.
cxArray* createStreamObject(std::uint64_t id) {
    ArrayPtr object(cxCreateObject("RandStream", 1));
    cxArray* value = cxCreateNumericMatrix(1, 1, cxUINT64_CLASS, cxREAL);
    *static_cast<std::uint64_t*>(cxGetData(value)) = id;
    cxSetProperty(object.get(), 0, "StreamID", value);
    return object.release();
}

}  // namespace numora

namespace lotstream {

namespace {

// A double in [0, 1) from the top 53 bits of one draw.
double uniform(Stream& stream) { return static_cast<double>(stream.next() >> 11) * 0x1.0p-53; }

[[noreturn]] void badDraw(std::uint64_t k, double n) {
    char count[32];
    std::snprintf(count, sizeof count, "%.17g", n);
    numora::detail::raise("numora:lotstream", "badDraw",
                          {static_cast<std::int64_t>(k), std::string(count)});
}

}  // namespace

// k distinct integers from 1..n: the first k steps of a Fisher-Yates shuffle.
void randkpermFcn(Stream* stream, double* out, std::uint64_t k, double n) {
    if (stream == nullptr) vellum::contextmgr::raiseNullResource();
    if (!(n >= 0.0 && n <= 0x1.0p53) || n != std::floor(n)) badDraw(k, n);
    const auto count = static_cast<std::uint64_t>(n);
    if (k > count) badDraw(k, n);

    // n is a number of predictors, so a full table costs no more than the data.
    std::vector<std::uint64_t> a(count);
    for (std::uint64_t i = 0; i < count; ++i) a[i] = i + 1;
    for (std::uint64_t i = 0; i < k; ++i) {
        const double u = uniform(*stream);
        const double offset = std::floor(u * static_cast<double>(count - i));
        std::uint64_t j = i + static_cast<std::uint64_t>(offset);
        if (j >= count) j = count - 1;  // rounding of u * (n - i) up to n - i
        std::swap(a[i], a[j]);
        out[i] = static_cast<double>(a[i]);
    }
}

}  // namespace lotstream
