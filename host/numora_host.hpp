// What the host runtime offers its front ends (CLI, Python, tests) beyond the
// operations a module needs: sinks, host functions, streams, objects and
// module loading.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "gateway/numora.hpp"

namespace numora {

// Owns a host array.
struct ArrayDeleter {
    void operator()(cxArray* a) const noexcept { cxDestroyArray(a); }
};
using ArrayPtr = std::unique_ptr<cxArray, ArrayDeleter>;

// Numeric arrays of any class, any number of dimensions, zero-filled.
NUMORA_API cxArray* cxCreateNumericArray(std::uint64_t ndim, const std::uint64_t* dims,
                                         cxClassID cls);
// A double array over `data`, which the caller lends: it stays the caller's,
// is never written or freed by the host, and must outlive the array. Spares
// a copy of large inputs; double elements fill the host's room exactly.
NUMORA_API cxArray* cxCreateBorrowedDoubleArray(std::uint64_t ndim, const std::uint64_t* dims,
                                                const double* data);
NUMORA_API cxArray* cxCreateCellArray(std::uint64_t ndim, const std::uint64_t* dims);
NUMORA_API cxArray* cxCreateString(std::string_view text);  // 1 by n char array
NUMORA_API cxArray* cxCreateDoubleScalar(double value);
NUMORA_API cxArray* cxCreateLogicalScalar(bool value);
// Object arrays: `count` elements of class `className`, no properties yet.
NUMORA_API cxArray* cxCreateObject(const std::string& className, std::uint64_t count = 1);
NUMORA_API std::string cxGetObjectClassName(const cxArray* a);
// The name of a class for messages: "double", "cell", "int8", ...
NUMORA_API std::string classIdName(cxClassID cls);
// Sets a property of element `index`; the object takes ownership of `value`.
NUMORA_API void cxSetProperty(cxArray* a, std::uint64_t index, const std::string& name,
                              cxArray* value);
NUMORA_API ArrayPtr cxDuplicateArray(const cxArray* a);
// The exception held by an exception object (cxEXCEPTION_CLASS).
NUMORA_API std::exception_ptr cxGetException(const cxArray* a);

// Printing: every calyxPrintf goes to the sink. A null sink means stdout.
using PrintSink = std::function<void(std::string_view)>;
NUMORA_API PrintSink setPrintSink(PrintSink sink);  // returns the previous sink

// Warnings go to the sink with their message and catalog text. A null sink
// prints "Warning: <text>" through the print sink.
using WarningSink = std::function<void(const Message& message, const std::string& text)>;
NUMORA_API WarningSink setWarningSink(WarningSink sink);

// Interrupt flag. The SIGINT handler sets it; hostInterruptCheck reads it.
NUMORA_API void requestInterrupt() noexcept;
NUMORA_API void clearInterrupt() noexcept;
NUMORA_API bool interruptRequested() noexcept;

// Installs a SIGINT handler that requests an interrupt, for the lifetime of
// the scope, and restores the previous handler (and clears the flag) after.
class NUMORA_API InterruptScope {
public:
    InterruptScope();
    ~InterruptScope();
    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;

private:
    struct Saved;
    std::unique_ptr<Saved> saved_;
};

// Makes the next cxMallocEx return null (for tests).
NUMORA_API void failNextAllocation() noexcept;

// Host allocations: cxMallocEx buffers and arrays, every array counted once
// (cells, copies, properties read and trapped errors included). `made`
// counts attempts since the runtime started; `live` what is not yet freed or
// destroyed.
struct AllocationCounts {
    std::uint64_t made = 0;
    std::uint64_t live = 0;
};
NUMORA_API AllocationCounts allocationCounts() noexcept;
// Makes the k-th host allocation from now fail, on whatever thread it
// happens (k >= 1; 0 cancels): cxMallocEx returns null, an array creator
// raises "numora:memory:outOfMemory". Only that one fails.
NUMORA_API void failNthAllocation(std::uint64_t k) noexcept;

// Host functions reachable by name from calyxCallNumora.
using HostFunction = std::function<void(int nout, cxArray** outputs, int nin, cxArray** inputs)>;
NUMORA_API void registerFunction(const std::string& name, HostFunction fn);
NUMORA_API void unregisterFunction(const std::string& name);

// Random streams. A stream is std::mt19937_64 seeded with its seed; the
// default stream is seeded with 5489 when the runtime starts.
NUMORA_API std::uint64_t createStream(std::uint64_t seed);  // returns its StreamID
NUMORA_API void destroyStream(std::uint64_t id);
NUMORA_API void resetDefaultStream(std::uint64_t seed = 5489);
// An object of class "RandStream" whose property "StreamID" is a 1 by 1 uint64.
NUMORA_API cxArray* createStreamObject(std::uint64_t id);

// A loaded module: its shared library opened by path, its interface version
// checked against this host's.
class NUMORA_API Module {
public:
    // Throws numora::Exception ("numora:module:...") when the library cannot
    // be opened, lacks an entry point or was built for another version.
    explicit Module(const std::string& path);
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    // Calls the entry point with SIGINT turned into an interrupt request.
    void call(int nout, cxArray** outputs, int nin, const cxArray** inputs) const;
    const std::string& path() const noexcept { return path_; }

private:
    std::string path_;
    void* handle_ = nullptr;
    CalyxFunction entry_ = nullptr;
};

}  // namespace numora
