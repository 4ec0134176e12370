// The host object by which callers name a stream.
#include "host/numora_host.hpp"

namespace numora {

cxArray* createStreamObject(std::uint64_t id) {
    ArrayPtr object(cxCreateObject("RandStream", 1));
    cxArray* value = cxCreateNumericMatrix(1, 1, cxUINT64_CLASS, cxREAL);
    *static_cast<std::uint64_t*>(cxGetData(value)) = id;
    cxSetProperty(object.get(), 0, "StreamID", value);
    return object.release();
}

}  // namespace numora
