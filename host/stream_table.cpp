// The table of live random streams. Streams are found by number; a handle
// carries the generation of the entry it was made for, so a handle kept past
// its stream's destruction derefs to null instead of to a stranger.
#include <memory>
#include <mutex>
#include <unordered_map>

#include "host/stream.hpp"

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

vellum::contextmgr::ResourceTable* knownLotstreams() {
    return &table();
}

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

std::uint64_t createStream(std::uint64_t seed) {
    return table().add(seed);
}

void destroyStream(std::uint64_t id) {
    table().remove(id);
}

void resetDefaultStream(std::uint64_t seed) {
    StreamTable& t = table();
    // Reseeded in place, so cached pointers to the default stream stay valid.
    t.deref(t.find(t.defaultId()))->reseed(seed);
}

}  // namespace numora
