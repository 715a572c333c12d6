#ifndef ZYL_BENCH_ROLECOMMAND_H
#define ZYL_BENCH_ROLECOMMAND_H

#include <CLI/CLI.hpp>
#include <cstddef>
#include <functional>
#include <string>

#include "Channel.h"

/// What a process that plays a role in a measurement is told on its command line.
struct RoleOptions {
    Channel::Setup setup;
    std::size_t count = 0;
    std::size_t warmUp = 0;  ///< round trips before those that are measured
    std::size_t rounds = 0;  ///< with each member of a hub
    int processor = -1;      ///< the only one it may run on; -1: any
    std::string file;
};

/// Gives `program` the command "role", which prepares the process (processor, deadline, end with its parent)
/// and then calls `run` with the role's name.
void AddRoleCommand(CLI::App& program, std::function<void(const std::string& role, RoleOptions&)> run);

/// Prints a figure, as Child::Finish reads it.
void Print(const std::string& name, double value);
/// Prints "peak": the most memory that this process has had, in KiB.
void PrintPeakMemory();
/// Returns when the standard input ends, so that nothing under way is lost.
void Linger();

#endif
