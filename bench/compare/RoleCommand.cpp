#include "RoleCommand.h"

#include <fmt/core.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <utility>

namespace {

/// Nothing that is measured takes nearly as long.
constexpr unsigned kDeadlineInSeconds = 900;

void Prepare(const RoleOptions& options) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    alarm(kDeadlineInSeconds);
    if (options.processor >= 0) {
        cpu_set_t processors;
        CPU_ZERO(&processors);
        CPU_SET(static_cast<std::size_t>(options.processor), &processors);
        sched_setaffinity(0, sizeof processors, &processors);
    }
}

}  // namespace

void AddRoleCommand(CLI::App& program, std::function<void(const std::string& role, RoleOptions&)> run) {
    CLI::App* command = program.add_subcommand("role")->group("");  // not for people
    auto role = std::make_shared<std::string>();
    auto options = std::make_shared<RoleOptions>();
    command->add_option("name", *role)->required();
    command->add_option("--kind", options->setup.kind);
    command->add_option("--directory", options->setup.directory);
    command->add_option("--self", options->setup.self);
    command->add_option("--peer", options->setup.peer);
    command->add_option("--size", options->setup.size);
    command->add_option("--answer", options->setup.answer);
    command->add_option("--identifier", options->setup.identifier);
    command->add_option("--count", options->count);
    command->add_option("--warm-up", options->warmUp);
    command->add_option("--rounds", options->rounds);
    command->add_option("--processor", options->processor);
    command->add_option("--file", options->file);
    command->callback([role, options, run = std::move(run)] {
        Prepare(*options);
        run(*role, *options);
    });
}

void Print(const std::string& name, double value) {
    fmt::print("{} {}\n", name, value);
}

void PrintPeakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmHWM:") {
            double kib = 0;
            status >> kib;
            Print("peak", kib);
        }
    }
}

void Linger() {
    std::fflush(stdout);
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
}
