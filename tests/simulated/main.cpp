#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <atomic>
#include <chrono>
#include <new>

#include "Program.h"
#include "Story.h"

/// Plays worlds by the million: a seed each, that decides all that happens in it.

namespace simulated {

namespace {

constexpr std::size_t kMostJobs = 256;

/// What the worker processes of a campaign share.
struct Tally {
    std::atomic<std::uint64_t> next;  // seed
    std::uint64_t end;                // of the seeds
    std::chrono::steady_clock::time_point until;
    std::atomic<std::uint64_t> played, failed, calls;
    /// By worker: the seed that it plays, and its process.
    std::array<std::uint64_t, kMostJobs> seeds;
    std::array<pid_t, kMostJobs> pids;
};

void Blame(Tally& tally, std::uint64_t seed, const std::string& wrong) {
    ++tally.failed;
    fmt::print("seed {}: {}\n", seed, wrong);
    std::fflush(stdout);
}

void Work(Tally& tally, std::size_t job) {
    constexpr unsigned kSeconds = 20;  // far longer than a world takes
    std::uint64_t& seed = tally.seeds.at(job);
    for (seed = tally.next++; seed < tally.end && std::chrono::steady_clock::now() < tally.until;
         seed = tally.next++) {
        alarm(kSeconds);
        ++tally.played;
        Choices choices(seed);
        const Played world = Play(Plan::Of(seed), choices, false);
        if (!world.wrong.empty()) {
            Blame(tally, seed, world.wrong);
        }
        tally.calls += world.calls;
    }
}

void Launch(Tally& tally, std::size_t job) {
    const pid_t pid = fork();
    if (pid == 0) {
        Work(tally, job);
        _exit(0);
    }
    tally.pids.at(job) = pid;
}

/// Whether all went well. A worker that has crashed is followed by another one.
bool Campaign(std::uint64_t first, std::uint64_t seeds, double minutes, std::size_t jobs) {
    const auto start = std::chrono::steady_clock::now();
    auto& tally = *new (
        mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Tally{};
    tally.next = first;
    tally.end = first + seeds;
    tally.until = start + std::chrono::milliseconds(static_cast<std::int64_t>(minutes * 60000));
    for (std::size_t job = 0; job < jobs; ++job) {
        Launch(tally, job);
    }
    int status = 0;
    for (pid_t pid = wait(&status); pid > 0; pid = wait(&status)) {
        const auto job = static_cast<std::size_t>(std::ranges::find(tally.pids, pid) - tally.pids.begin());
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            Blame(tally, tally.seeds.at(job), "it crashes, or hangs");
            Launch(tally, job);
        }
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    fmt::print("{} worlds with {} calls in {:.1f} s, {:.0f} a second; {} failed\n", tally.played, tally.calls,
               time.count(), static_cast<double>(tally.played) / time.count(), tally.failed);
    return tally.failed == 0 && tally.played > 0;
}

bool One(std::uint64_t seed, bool tells) {
    Choices choices(seed);
    const std::string wrong = Play(Plan::Of(seed), choices, tells).wrong;
    fmt::print("{}\n", wrong.empty() ? "all went well" : wrong);
    return wrong.empty();
}

int Main(int argc, char** argv) {
    CLI::App app(
        "Plays worlds of processes over a simulated system. Each seed is one; a seed that fails is named.");
    std::uint64_t first = 1;
    std::uint64_t seeds = std::uint64_t{1} << 60;
    double minutes = 60;
    std::size_t jobs = 1;
    std::uint64_t seed = 0;
    bool tells = false;
    bool shrinks = false;
    app.add_option("--first", first, "the first seed");
    app.add_option("--seeds", seeds, "how many at the most");
    app.add_option("--minutes", minutes, "how long at the most");
    app.add_option("--jobs", jobs, "processes at once")->check(CLI::Range(std::size_t{1}, kMostJobs));
    CLI::Option* const one = app.add_option("--seed", seed, "plays this one alone");
    app.add_flag("--story", tells, "tells each thing that happens in it")->needs(one);
    app.add_flag("--shrink", shrinks, "drops all that it fails without, and tells the rest")->needs(one);
    CLI11_PARSE(app, argc, argv);
    if (shrinks) {
        Shrink(seed);
        return 0;
    }
    return (*one ? One(seed, tells) : Campaign(first, seeds, minutes, jobs)) ? 0 : 1;
}

}  // namespace

}  // namespace simulated

int main(int argc, char** argv) {
    return simulated::Main(argc, argv);
}
