// The host class that holds values of an element type.
#pragma once

#include "gateway/numora.hpp"

namespace arbolin {

template <class T>
constexpr cxClassID hostClassOf();
template <>
constexpr cxClassID hostClassOf<double>() {
    return cxDOUBLE_CLASS;
}
template <>
constexpr cxClassID hostClassOf<float>() {
    return cxSINGLE_CLASS;
}

template <class T>
constexpr const char* hostClassName() {
    return hostClassOf<T>() == cxDOUBLE_CLASS ? "double" : "single";
}

}  // namespace arbolin
