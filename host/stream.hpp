// Internal: a host random stream and the table of live streams.
#pragma once

#include <cstdint>
#include <random>

#include "host/numora_host.hpp"

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
