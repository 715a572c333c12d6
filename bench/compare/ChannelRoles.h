#ifndef ZYL_BENCH_CHANNELROLES_H
#define ZYL_BENCH_CHANNELROLES_H

#include <cstddef>
#include <memory>
#include <string>

#include "Channel.h"
#include "RoleCommand.h"

/// The roles that need nothing but a channel, the same for every peer. Whoever receives reads each body from
/// end to end, and ends with an error where it is not what was sent.
///
///     ping       `warmUp` round trips, then `count` that are measured, in ns: "median", "percentile99",
///                "percentile99.9"
///     pong       sends every message back
///     source     one message to warm up, then `count` one way: "seconds" until the other end has read all
///     sink       takes them
///
/// Runs `role` over the channel that `open` makes; false when there is no such role.
bool RunChannelRole(const std::string& role, RoleOptions& options,
                    std::unique_ptr<Channel> (*open)(const Channel::Setup&));

/// Answers `count` messages of the setup's size.
void Echo(Channel& channel, const Channel::Setup& setup, std::size_t count);

#endif
