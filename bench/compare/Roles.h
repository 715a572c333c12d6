#ifndef ZYL_BENCH_ROLES_H
#define ZYL_BENCH_ROLES_H

#include <CLI/CLI.hpp>

/// Adds one subcommand for each role that a process of a measurement plays. Each role prints its figures
/// and its peak memory ("peak", in KiB). A role that serves then waits until its standard input ends, so
/// that no message in flight is lost.
///
///     ping          does `count` round trips after a warm-up; prints "median" and "percentile99" (ns)
///     pong          sends every message back
///     source        sends `count` messages; prints "seconds" until the sink has all of them
///     sink          receives them
///     hub           does round trips with each of `count` members in turn; prints "mean" (ns)
///     member        sends every message back to the hub
///     send-file     copies a file to receive-file; prints "seconds"
///     receive-file  receives it
///     idle          waits one second beside an idle peer; prints "processor" (us used) and "sleeps" (number)
///     spin          keeps a processor busy until it is killed
void AddRoles(CLI::App& program);

#endif
