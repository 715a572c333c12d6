#ifndef ZYL_BENCH_ROLES_H
#define ZYL_BENCH_ROLES_H

#include <CLI/CLI.hpp>

/// What this program does as one of the processes of a measurement: the roles of ChannelRoles.h, and these, in
/// which this project is alone. Each role prints its figures, and those that carry something their peak memory
/// ("peak", in KiB).
///
///     hub        round trips with each of `count` members in turn: "mean" (ns)
///     member     sends every message back, to the hub
///     send-file  copies a file to the role receive-file: "seconds"
///     receive-file
///     idle       waits for a second beside an idle peer: "processor" (us used meanwhile), "sleeps" (how often)
///     spin       is busy until it is killed
void AddRoles(CLI::App& program);

#endif
