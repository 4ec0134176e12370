// The operations that the module needs of its host, and nothing more.
// The host runtime (host/) implements them; the module reaches the host
// through this header alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include <boost/variant.hpp>

#define NUMORA_API __attribute__((visibility("default")))

// ---------------------------------------------------------------- arrays

// Opaque host array. Real numeric data is column-major.
struct cxArray;

enum cxClassID : int {
    cxUNKNOWN_CLASS = 0,
    cxCELL_CLASS = 1,
    cxOBJECT_CLASS = 2,  // an object with named properties
    cxLOGICAL_CLASS = 3,
    cxCHAR_CLASS = 4,
    cxEXCEPTION_CLASS = 5,  // a trapped host exception (see calyxCallNumoraWithTrap)
    cxDOUBLE_CLASS = 6,
    cxSINGLE_CLASS = 7,
    cxINT8_CLASS = 8,
    cxUINT8_CLASS = 9,
    cxINT16_CLASS = 10,
    cxUINT16_CLASS = 11,
    cxINT32_CLASS = 12,
    cxUINT32_CLASS = 13,
    cxINT64_CLASS = 14,
    cxUINT64_CLASS = 15,
};

enum cxComplexity : int { cxREAL = 0 };

NUMORA_API cxClassID cxGetClassID(const cxArray* a);
NUMORA_API std::uint64_t cxGetM(const cxArray* a);  // first dimension
NUMORA_API std::uint64_t cxGetN(const cxArray* a);  // product of all dimensions but the first
NUMORA_API std::uint64_t cxGetNumberOfElements(const cxArray* a);
NUMORA_API std::uint64_t cxGetNumberOfDimensions(const cxArray* a);
NUMORA_API const std::uint64_t* cxGetDimensions(const cxArray* a);
NUMORA_API void* cxGetData(const cxArray* a);  // first element of the real data
NUMORA_API bool* cxGetLogicals(const cxArray* a);
NUMORA_API double cxGetScalar(const cxArray* a);  // first element as a double
NUMORA_API bool cxIsLogicalScalarTrue(const cxArray* a);
NUMORA_API bool cxIsEmpty(const cxArray* a);
NUMORA_API cxArray* cxGetCell(const cxArray* cell, std::uint64_t index);  // by pointer, not copied
NUMORA_API std::string cxGetString(const cxArray* a);                     // text of a char array
// A new array holding the value of property `name` of element `index` of an
// object array, or null when there is no such property. The caller destroys it.
NUMORA_API cxArray* cxGetProperty(const cxArray* a, std::uint64_t index, const char* name);

NUMORA_API cxArray* cxCreateNumericMatrix(std::uint64_t m, std::uint64_t n, cxClassID cls,
                                          cxComplexity complexity);
NUMORA_API cxArray* cxCreateLogicalMatrix(std::uint64_t m, std::uint64_t n);
NUMORA_API cxArray* cxCreateCellMatrix(std::uint64_t m, std::uint64_t n);  // all elements unset
NUMORA_API cxArray* cxCreateCharArray(std::uint64_t ndim, const std::uint64_t* dims);
NUMORA_API void cxSetCell(cxArray* cell, std::uint64_t index, cxArray* value);  // takes ownership
NUMORA_API void cxDestroyArray(cxArray* a);

// ------------------------------------------------------ numbers, memory

NUMORA_API double cxGetNaN();
NUMORA_API bool cxIsNaN(double v);               // safe on worker threads
NUMORA_API void* cxMallocEx(std::size_t bytes);  // null when the host has no memory
NUMORA_API void cxFreeEx(void* p);

// -------------------------------------------------------------- printing

// C printf semantics, except that %i (and %d) take a 64-bit integer.
NUMORA_API int calyxPrintf(const char* format, ...);

// ------------------------------------------------------------- messages

namespace numora {

using MessageArg = boost::variant<std::int64_t, std::string, std::wstring>;

// A message: a colon-separated component, a key, and its arguments.
struct NUMORA_API Message {
    std::string component;
    std::string key;
    std::vector<MessageArg> args;

    std::string identifier() const { return component + ":" + key; }
};

// The host's exception: a message, with its text from the host's catalog.
class NUMORA_API Exception : public std::exception {
public:
    explicit Exception(Message message);
    ~Exception() override;

    const Message& message() const noexcept { return message_; }
    const std::string& identifier() const noexcept { return identifier_; }
    const std::string& text() const noexcept { return text_; }
    void setText(std::string text);
    const char* what() const noexcept override;

    // Throws this exception again with its own dynamic type.
    [[noreturn]] virtual void rethrow() const;

private:
    Message message_;
    std::string identifier_;
    std::string text_;
};

// One exception type per message, so that handlers can tell messages apart
// by type. `Tag` is the message's own class (CRTP).
template <class Tag>
class MessageException : public Exception {
public:
    using Exception::Exception;
    [[noreturn]] void rethrow() const override { throw static_cast<const Tag&>(*this); }
};

// The user asked to stop (Ctrl-C).
class NUMORA_API Interrupt : public Exception {
public:
    Interrupt();
    [[noreturn]] void rethrow() const override;
};

}  // namespace numora

// Hands an error to the host: fills in the catalog text and throws the
// exception with its own type. Does not return.
NUMORA_API void cxErrorMsgId(numora::Exception& error);
// Reports a warning; the work goes on.
NUMORA_API void cxWarningMsgId(const numora::Message& warning);
// The catalog text of a message, for the global locale.
NUMORA_API std::string cxMessageText(const numora::Message& message);

// -------------------------------------------------------------- interrupt

// Throws numora::Interrupt once the user has pressed Ctrl-C. Safe on worker threads.
NUMORA_API void hostInterruptCheck();

// ---------------------------------------------------------- random streams

namespace lotstream {
class Stream;  // a host random stream

// Fills out[0..k) with k distinct integers drawn from 1..n; advances the stream.
NUMORA_API void randkpermFcn(Stream* stream, double* out, std::uint64_t k, double n);
}  // namespace lotstream

namespace vellum::contextmgr {

struct Handle {
    std::uint64_t id = 0;
    std::uint64_t generation = 0;
};

// The host's table of live random streams.
class NUMORA_API ResourceTable {
public:
    virtual ~ResourceTable();
    // The handle of stream number `id`; a handle that derefs to null when unknown.
    virtual Handle find(std::uint64_t id) const = 0;
    // The stream behind a handle, or null when it is no longer live.
    virtual lotstream::Stream* deref(Handle handle) const = 0;
};

// "Unable to access null resource".
class NUMORA_API NullResource : public numora::MessageException<NullResource> {
public:
    NullResource();
};

// Raises NullResource through the host's error route.
[[noreturn]] NUMORA_API void raiseNullResource();

}  // namespace vellum::contextmgr

// A handle on a host stream: table, handle in it, cached stream pointer.
struct StreamHandle {
    vellum::contextmgr::ResourceTable* table = nullptr;
    vellum::contextmgr::Handle handle;
    lotstream::Stream* stream = nullptr;
};

NUMORA_API vellum::contextmgr::ResourceTable* knownLotstreams();
NUMORA_API StreamHandle lotGetDefaultStream();

// ------------------------------------------------------ special functions

namespace numfunc {
enum class Tail { Lower, Upper };
// Regularised incomplete gamma P(a, x) (Lower) or Q(a, x) (Upper); NaN for
// NaN or out-of-domain arguments. Safe on worker threads.
NUMORA_API double gammainc(double x, double a, Tail tail);
// Regularised incomplete beta I_x(a, b) (Lower) or 1 - I_x(a, b) (Upper).
NUMORA_API double betainc(double x, double a, double b, Tail tail);
}  // namespace numfunc

// ------------------------------------------------------------- call-backs

// Calls the host function `name`. Errors propagate as exceptions.
NUMORA_API void calyxCallNumora(int nout, cxArray** outputs, int nin, cxArray** inputs,
                                const char* name);
// As calyxCallNumora, but an error is trapped: the result is null on success,
// otherwise an exception object (class cxEXCEPTION_CLASS) that the host
// function "throw" raises again. The caller destroys it.
NUMORA_API cxArray* calyxCallNumoraWithTrap(int nout, cxArray** outputs, int nin, cxArray** inputs,
                                            const char* name);

// ------------------------------------------------------ module interface

// The interface version that modules built against this header require.
inline constexpr std::uint32_t kCalyxApiMajor = 1;
inline constexpr std::uint32_t kCalyxApiMinor = 0;

extern "C" {
using CalyxFunction = void (*)(int nout, cxArray* outputs[], int nin, const cxArray* inputs[]);
using CalyxApiVersionFunction = void (*)(std::uint32_t* first, std::uint32_t* second);
}
