// Reaching the host's random streams.
#pragma once

#include <cstdint>

#include "gateway/numora.hpp"

namespace arbolin {

// The handle of stream number `id` in the host's table; raises the null
// resource error when the table or the stream is missing.
inline StreamHandle lookUpStream(std::uint64_t id) {
    StreamHandle handle;
    handle.table = knownLotstreams();
    if (handle.table == nullptr) {
        vellum::contextmgr::raiseNullResource();
    }
    handle.handle = handle.table->find(id);
    handle.stream = handle.table->deref(handle.handle);
    if (handle.stream == nullptr) {
        vellum::contextmgr::raiseNullResource();
    }
    return handle;
}

// The stream behind a handle: the cached pointer, else a fresh look-up.
inline lotstream::Stream* streamOf(StreamHandle& handle) {
    if (handle.stream != nullptr) {
        return handle.stream;
    }
    lotstream::Stream* stream =
        handle.table != nullptr ? handle.table->deref(handle.handle) : nullptr;
    if (stream == nullptr) {
        vellum::contextmgr::raiseNullResource();
    }
    return stream;
}

}  // namespace arbolin
