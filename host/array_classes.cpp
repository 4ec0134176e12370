// Class predicates and names.
#include "host/array_impl.hpp"

namespace numora::detail {

bool isNumeric(cxClassID cls) noexcept {
    return cls >= cxDOUBLE_CLASS && cls <= cxUINT64_CLASS;
}

bool holdsData(cxClassID cls) noexcept {
    return isNumeric(cls) || cls == cxLOGICAL_CLASS || cls == cxCHAR_CLASS;
}

std::string classIdName(cxClassID cls) {
    switch (cls) {
        case cxCELL_CLASS: return "cell";
        case cxOBJECT_CLASS: return "object";
        case cxLOGICAL_CLASS: return "logical";
        case cxCHAR_CLASS: return "char";
        case cxEXCEPTION_CLASS: return "exception";
        case cxDOUBLE_CLASS: return "double";
        case cxSINGLE_CLASS: return "single";
        case cxINT8_CLASS: return "int8";
        case cxUINT8_CLASS: return "uint8";
        case cxINT16_CLASS: return "int16";
        case cxUINT16_CLASS: return "uint16";
        case cxINT32_CLASS: return "int32";
        case cxUINT32_CLASS: return "uint32";
        case cxINT64_CLASS: return "int64";
        case cxUINT64_CLASS: return "uint64";
        case cxUNKNOWN_CLASS: break;
    }
    return "unknown";
}

}  // namespace numora::detail
