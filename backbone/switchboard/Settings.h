#ifndef ZYL_BACKBONE_SWITCHBOARD_SETTINGS_H
#define ZYL_BACKBONE_SWITCHBOARD_SETTINGS_H

#include <chrono>
#include <cstddef>

namespace zyl::backbone {

/// What applies whatever the transport.
struct Settings {
    /// ZYL_BACKBONE_CONNECT_TIMEOUT, in seconds: how long a first send waits for a target that is not there
    /// yet.
    std::chrono::milliseconds connectTimeout{30000};
    /// What a process takes in while its sends wait costs no more memory than this, a few messages beside:
    /// unless it is one of several that wait for one another in a circle.
    std::size_t takenInBudget = std::size_t{64} * 1024 * 1024;

    /// Reads the environment. A malformed value is a fatal error that names the variable.
    static Settings FromEnvironment();
};

}  // namespace zyl::backbone

#endif
