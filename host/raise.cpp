#include "host/raise.hpp"

#include <utility>

namespace numora::detail {

void raise(std::string component, std::string key, std::vector<MessageArg> args) {
    Exception error(Message{std::move(component), std::move(key), std::move(args)});
    cxErrorMsgId(error);
    throw error;  // not reached: the raiser throws
}

}  // namespace numora::detail
