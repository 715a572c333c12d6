#ifndef ZYL_BACKBONE_LOCAL_LOCALTRANSPORT_H
#define ZYL_BACKBONE_LOCAL_LOCALTRANSPORT_H

#include <cstddef>
#include <memory>
#include <string>

#include "Intake.h"
#include "Lane.h"
#include "system/System.h"
#include "transport/Transport.h"

namespace zyl::backbone::local {

/// The sizes by which this transport decides. Both sides of a link must have the same lane.
struct Limits {
    /// The ring holds some dozen large messages. In a smaller one the reader's second cache keeps the lines
    /// from which the writer wants them back, which costs more than bytes that come from the third. Room is
    /// given back in a fraction of it, so that a writer faster than its reader goes on while the reader is at
    /// its next message.
    LaneShape lane{std::size_t{2} * 1024 * 1024, std::size_t{64} * 1024};
    /// Long messages under way on a link at once: one is written while the other one is read.
    std::size_t blocks = 2;
    /// What this process keeps of free blocks.
    std::size_t keptBlocks = std::size_t{512} * 1024 * 1024;
    Pace pace;
};

/// The settings of the local transport.
struct LocalSettings {
    /// ZYL_BACKBONE_DIR: where the domains are; empty: the system's usual place.
    std::string directory;
    /// ZYL_BACKBONE_LANE: whether messages go through shared memory where that can be had ("memory"), or
    /// through the channel alone ("socket").
    bool lanes = true;
    Limits limits;

    /// Reads the environment. A malformed value is a fatal error that names the variable.
    static LocalSettings FromEnvironment();
};

/// The transport between the processes of one user on one machine: no server, no configuration.
///
/// Who sends to an application connects to its holder; who wants to hear of its end connects to it as well,
/// and a newcomer connects to everybody who wants to hear of newcomers. So a process's end ends a channel at
/// everybody whom it concerns, however the process ended. `system` outlives the transport.
std::unique_ptr<Transport> MakeLocalTransport(system::System& system, const LocalSettings& settings);

}  // namespace zyl::backbone::local

#endif
