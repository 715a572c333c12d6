#include <fmt/core.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "ForeignLoad.h"
#include "Results.h"
#include "RunReporting.h"
#include "Scenarios.h"

/// Measures what the backbone costs when there are many applications on one machine. Each is a process of its
/// own, forked and not executed, so that the backbone is measured and not the loader.

namespace {

struct Options {
    std::vector<std::string> only;
    std::vector<std::size_t> idle{0, 300, 1000};
    std::vector<std::size_t> watching{300, 1000};
    std::size_t allToAll = 300;
    std::size_t descriptors = 1024;
    int rounds = 3;
    int limit = 120;
};

/// The most descriptors that this process may have; from now on it may.
std::size_t RaiseDescriptorLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur;
}

void Idle(const Options& options, Results& results) {
    for (const std::size_t idle : options.idle) {
        const RoundTrip trip = RoundTripBesideIdleLinks(idle, std::chrono::seconds(options.limit));
        const std::string contender = fmt::format("{} idle links", idle);
        results.Add("round trip of 64 bytes, the receiver beside idle links", "us", contender, trip.median);
        results.Add("its 99th percentile", "us", contender, trip.percentile99);
    }
}

void Watch(const Options& options, Results& results) {
    for (const std::size_t applications : options.watching) {
        const Watching watching = AllWatchOneIsKilled(applications, std::chrono::seconds(options.limit));
        const std::string contender = fmt::format("{} applications", applications);
        results.Add("start until each application watches all others", "s", contender, watching.startSeconds);
        results.Add("kill -9 of one until the last of the others has the report", "ms", contender,
                    watching.reportMilliseconds);
    }
}

void ToAll(const Options& options, Results& results) {
    for (const std::size_t descriptors : {options.descriptors, RaiseDescriptorLimit()}) {
        results.Add(fmt::format("one message from each of {} applications to each other", options.allToAll),
                    "s", fmt::format("{} descriptors", descriptors),
                    AllToAll(options.allToAll, descriptors, std::chrono::seconds(options.limit)));
    }
}

struct Scenario {
    const char* name;
    void (*measure)(const Options&, Results&);
};
const Scenario kScenarios[] = {{"idle", Idle}, {"watch", Watch}, {"all-to-all", ToAll}};

void Measure(const Options& options) {
    RaiseDescriptorLimit();
    Results results;
    for (int round = 1; round <= options.rounds; ++round) {
        for (const Scenario& scenario : kScenarios) {
            if (options.only.empty() ||
                std::count(options.only.begin(), options.only.end(), scenario.name) != 0) {
                const ForeignLoad others;
                scenario.measure(options, results);
                fmt::print(stderr, "round {}: {}; other programs had {:.0f} % of the processors\n", round,
                           scenario.name, others.Share() * 100);
            }
        }
    }
    fmt::print("Medians of {} rounds; a ratio is the first line's value divided by that line's.\n",
               options.rounds);
    std::fflush(stdout);
    results.PrintTable(std::cout);
}

void AddOptions(CLI::App& program, Options& options) {
    program.add_option("--only", options.only, "Only these scenarios: idle, watch, all-to-all")
        ->check(CLI::IsMember({"idle", "watch", "all-to-all"}));
    program.add_option("--idle", options.idle, "Numbers of idle links")->capture_default_str();
    program.add_option("--watching", options.watching, "Numbers of applications that watch each other")
        ->check(CLI::Range(2, 10000))
        ->capture_default_str();
    program.add_option("--all-to-all", options.allToAll, "Applications that send to each other")
        ->check(CLI::Range(2, 10000))
        ->capture_default_str();
    program.add_option("--descriptors", options.descriptors, "What each of those may have open")
        ->capture_default_str();
    program.add_option("--rounds", options.rounds, "How often everything is measured")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    program.add_option("--limit", options.limit, "Seconds after which a scenario is given up")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
}

int Run(int argc, char** argv) {
    CLI::App program("Measures the backbone with many applications on one machine.");
    Options options;
    AddOptions(program, options);
    CLI11_PARSE(program, argc, argv);
    Measure(options);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return RunReporting("scale", Run, argc, argv);
}
