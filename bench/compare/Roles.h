#ifndef ZYL_BENCH_ROLES_H
#define ZYL_BENCH_ROLES_H

#include <CLI/CLI.hpp>

/// What this program does as one of the processes of a measurement. Each role prints its figures and its peak
/// memory
/// ("peak", in KiB). A role that serves then lingers until its standard input ends, so that nothing under way
/// is lost.
///
///     ping       `count` round trips, after a few to warm up: "median", "percentile99" (ns)
///     pong       sends every message back
///     source     `count` messages one way: "seconds" until the other end has all
///     sink       takes them
///     hub        round trips with each of `count` members in turn: "mean" (ns)
///     member     sends every message back, to the hub
///     send-file  copies a file to the role receive-file: "seconds"
///     receive-file
///     idle       waits for a second beside an idle peer: "processor" (us used meanwhile), "sleeps" (how
///     often) spin       is busy until it is killed
void AddRoles(CLI::App& program);

#endif
