// A random stream of the host, owned by a Python object.
#pragma once

#include <cstdint>

namespace arbolin::binding {

// Registers a stream in the host's stream table for its lifetime. As a call
// input it becomes a stream object that refers to the stream by number, so
// the stream keeps its state from one call to the next.
class Stream {
public:
    explicit Stream(std::uint64_t seed);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    std::uint64_t seed() const noexcept { return seed_; }
    std::uint64_t id() const noexcept { return id_; }

private:
    std::uint64_t seed_;
    std::uint64_t id_;
};

}  // namespace arbolin::binding
