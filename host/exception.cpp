// The host's exception types.
#include <utility>

#include "gateway/numora.hpp"

namespace numora {

Exception::Exception(Message message)
    : message_(std::move(message)),
      identifier_(message_.identifier()),
      text_(cxMessageText(message_)) {}

Exception::~Exception() = default;

void Exception::setText(std::string text) {
    text_ = std::move(text);
}

const char* Exception::what() const noexcept {
    return text_.empty() ? identifier_.c_str() : text_.c_str();
}

void Exception::rethrow() const {
    throw *this;
}

Interrupt::Interrupt() : Exception(Message{"numora", "interrupt", {}}) {}

void Interrupt::rethrow() const {
    throw *this;
}

}  // namespace numora

namespace vellum::contextmgr {

NullResource::NullResource()
    : MessageException(numora::Message{"vellum:contextmgr", "null", {}}) {}

}  // namespace vellum::contextmgr
