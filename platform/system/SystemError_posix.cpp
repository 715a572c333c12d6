#include "platform/system/SystemError.h"

#include <fmt/format.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace zyl::platform {

SystemError SystemError::Last(std::string call, std::string object) {
    const int reason = errno;
    return {std::move(call), std::move(object), reason};
}

std::string SystemError::Reason() const {
    return std::generic_category().message(reason);
}

std::string SystemError::Text() const {
    return object.empty() ? fmt::format("{}: {}", call, Reason())
                          : fmt::format("{} {}: {}", call, object, Reason());
}

bool SystemError::IsShortage() const {
    switch (reason) {
        case EMFILE:
        case ENFILE:
        case ENOBUFS:
        case ENOMEM:
        case ENOSPC:
        case EDQUOT:
            return true;
        default:
            return false;
    }
}

}  // namespace zyl::platform
