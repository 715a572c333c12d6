#ifndef ZYL_PLATFORM_SYSTEM_SYSTEMERROR_H
#define ZYL_PLATFORM_SYSTEM_SYSTEMERROR_H

#include <string>

namespace zyl::platform {

/// Why a call of the operating system has failed.
struct SystemError {
    std::string call;    ///< "open", "bind", ...
    std::string object;  ///< what it was called for, ready to be printed; may be empty
    int reason = 0;      ///< errno

    /// From errno as it stands.
    static SystemError Last(std::string call, std::string object = {});

    /// The reason in words: "No such file or directory".
    std::string Reason() const;
    /// "open '/tmp/x': No such file or directory".
    std::string Text() const;
    /// Whether the process or the system has run out of something, so that a later try may succeed.
    bool IsShortage() const;
};

}  // namespace zyl::platform

#endif
