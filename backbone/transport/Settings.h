#ifndef ZYL_BACKBONE_SETTINGS_H
#define ZYL_BACKBONE_SETTINGS_H

#include <chrono>
#include <string>

namespace zyl::backbone {

/// The settings of the backbone: environment variables with the prefix ZYL_BACKBONE_. docs/backbone.md lists
/// them.
struct Settings {
    /// ZYL_BACKBONE_DIR: where the local transport keeps its domains; empty: chosen by the transport.
    std::string directory;
    /// ZYL_BACKBONE_CONNECT_TIMEOUT, in seconds: how long a first send waits for a target that is not there
    /// yet.
    std::chrono::milliseconds connectTimeout{30000};

    /// ZYL_BACKBONE_LANE: how messages cross a link of the local transport.
    enum class Lane {
        kMemory,  ///< "memory": through shared memory, where it can be had; the default
        kSocket   ///< "socket": through the socket alone
    };
    Lane lane = Lane::kMemory;

    /// Reads the environment. A malformed value is a fatal error that names the variable.
    static Settings FromEnvironment();
};

}  // namespace zyl::backbone

#endif
