#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "Figures.h"
#include "ForeignLoad.h"
#include "Pair.h"
#include "Roles.h"
#include "RunReporting.h"

/// Measures this project beside its peers: every figure in every round, the contenders one after the other
/// within it, each with fresh processes. Prints a table, and writes JSON where it is asked to.

namespace {

struct Figure {
    const char* name;
    void (*measure)(const Measurement&);
};

const Figure kFigures[] = {
    {"round-trip", RoundTrips},
    {"busy", RoundTripsBesideBusyProcesses},
    {"rate", Rates},
    {"bulk", BulkRates},
    {"large", LargeRates},
    {"file", FileCopies},
    {"memory", PeakMemory},
    {"record", Records},
    {"dispatch", Dispatch},
    {"tree", TreeMapCopies},
    {"idle", IdleWaiter},
    {"sizes", MessageSizes},
    {"identifiers", IdentifierLengths},
    {"applications", ApplicationCounts},
};

struct Options {
    std::vector<std::string> only;
    std::string json;
    int rounds = 5;
    bool quick = false;
    std::string disk = "/var/tmp";
    std::string memory = "/dev/shm";
};

bool Wanted(const Options& options, const std::string& name) {
    return options.only.empty() ||
           std::find(options.only.begin(), options.only.end(), name) != options.only.end();
}

void Compare(const Options& options) {
    for (const std::string& kind : MissingContenders()) {
        std::cerr << kind << " was not installed when this program was built; it is left out\n";
    }
    Results results;
    const Measurement measurement{results, options.quick, options.disk, options.memory};
    for (int round = 1; round <= options.rounds; ++round) {
        for (const Figure& figure : kFigures) {
            if (Wanted(options, figure.name)) {
                const ForeignLoad others;
                figure.measure(measurement);
                fmt::print(stderr, "round {}: {}; other programs had {:.0f} % of the processors\n", round,
                           figure.name, others.Share() * 100);
            }
        }
    }
    std::cout << "Medians of " << options.rounds
              << " rounds; a ratio is the first line's value divided by that line's.\n";
    results.PrintTable(std::cout);
    if (!options.json.empty()) {
        std::ofstream json(options.json);
        results.WriteJson(json);
        if (!json.flush()) {
            throw std::runtime_error(fmt::format("cannot write {}", options.json));
        }
    }
}

void AddOptions(CLI::App& program, Options& options) {
    std::vector<std::string> names;
    for (const Figure& figure : kFigures) {
        names.emplace_back(figure.name);
    }
    program.add_option("--only", options.only, "Only these figures")->check(CLI::IsMember(names));
    program.add_option("--json", options.json, "Also write the figures into this file");
    program.add_option("--rounds", options.rounds, "How often everything is measured")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    program.add_flag("--quick", options.quick, "Smaller counts and files: a trial run");
    program.add_option("--disk", options.disk, "Directory on a disk, for the file copies")
        ->capture_default_str();
    program.add_option("--memory", options.memory, "Directory on a memory file system")
        ->capture_default_str();
}

int Run(int argc, char** argv) {
    CLI::App program("Measures typed messages and file transfers beside other ways to move the same bytes.");
    Options options;
    AddOptions(program, options);
    AddRoles(program);
    CLI11_PARSE(program, argc, argv);
    if (program.get_subcommands().empty()) {
        Compare(options);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return RunReporting("compare", Run, argc, argv);
}
