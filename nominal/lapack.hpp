// The one LAPACK routine the module uses, from the ILP64 build (64-bit
// integers), and the host memory that its buffers live in.
#pragma once

#include <cstddef>
#include <cstdint>

#include "gateway/numora.hpp"

extern "C" void dsyev_(const char* jobz, const char* uplo, const std::int64_t* n, double* a,
                       const std::int64_t* lda, double* w, double* work, const std::int64_t* lwork,
                       std::int64_t* info, std::size_t jobzLength, std::size_t uploLength);

namespace arbolin {

// All eigenvalues and eigenvectors of a symmetric matrix. Tests may put
// another routine in its place to reach the paths of a failed solve.
using SymmetricEigenSolver = void (*)(const char* jobz, const char* uplo, const std::int64_t* n,
                                      double* a, const std::int64_t* lda, double* w, double* work,
                                      const std::int64_t* lwork, std::int64_t* info,
                                      std::size_t jobzLength, std::size_t uploLength);
inline SymmetricEigenSolver symmetricEigenSolver = &dsyev_;

// Host buffers that are given back however the scope ends.
class HostBuffers {
public:
    HostBuffers() = default;
    HostBuffers(const HostBuffers&) = delete;
    HostBuffers& operator=(const HostBuffers&) = delete;
    ~HostBuffers() {
        for (std::size_t i = 0; i < count_; ++i) {
            cxFreeEx(buffers_[i]);
        }
    }
    // Registers the buffer as soon as it exists; null stays unregistered.
    double* keep(void* buffer) {
        if (buffer != nullptr) {
            buffers_[count_++] = buffer;
        }
        return static_cast<double*>(buffer);
    }

private:
    void* buffers_[3] = {};
    std::size_t count_ = 0;
};

}  // namespace arbolin
