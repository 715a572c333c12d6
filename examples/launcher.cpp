// Starts a small analysis in a domain of its own: the monitor in DIRECTORY/monitor, which must contain
// model.dat, the solver in DIRECTORY/solver, and the relay between them. Shows their output, each line
// preceded by its program's name, until all have ended. The status is 0 if all of theirs are. The programs
// do not outlive the launcher: if it is killed or cannot start the next one, they get SIGTERM.

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

/// How long the other programs may take to end in good order after one has failed.
constexpr std::chrono::seconds kTimeToEnd{5};

struct Program {
    std::string name;
    pid_t pid;
    int output;        // the read end of a pipe; -1 once the program has ended
    std::string line;  // the incomplete last line
};

[[noreturn]] void Fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// Starts the program `name` from this program's directory, with `directory` as its current directory.
Program Start(const std::string& name, const std::filesystem::path& directory,
              const std::vector<std::string>& arguments) {
    const auto path = std::filesystem::canonical("/proc/self/exe").replace_filename(name).string();
    std::filesystem::create_directories(directory);
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        Fail("cannot make a pipe");
    }
    const pid_t launcher = getpid();
    const pid_t pid = fork();
    if (pid < 0) {
        Fail("cannot start a process");
    }
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != launcher) {
            _exit(EXIT_FAILURE);  // the launcher ended before that call
        }
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        if (chdir(directory.c_str()) == 0) {
            execv(path.c_str(), argv.data());
        }
        std::perror(path.c_str());
        _exit(127);
    }
    close(ends[1]);
    std::printf("launcher: %s is process %d\n", name.c_str(), pid);
    return {name, pid, ends[0], {}};
}

/// Shows the lines that have arrived. Returns false at the end of the output.
bool ShowOutput(Program& program) {
    std::array<char, 4096> bytes{};
    const ssize_t count = read(program.output, bytes.data(), bytes.size());
    program.line.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count <= 0 && !program.line.empty()) {
        program.line += '\n';
    }
    for (std::size_t end = 0; (end = program.line.find('\n')) != std::string::npos;) {
        std::printf("%s: %s\n", program.name.c_str(), program.line.substr(0, end).c_str());
        program.line.erase(0, end + 1);
    }
    return count > 0;
}

/// Waits for a program whose output has ended. Returns whether it succeeded.
bool HasSucceeded(Program& ended) {
    close(ended.output);
    ended.output = -1;
    int status = 0;
    waitpid(ended.pid, &status, 0);
    if (status != 0) {
        std::printf("launcher: %s ended with %s %d\n", ended.name.c_str(),
                    WIFSIGNALED(status) ? "signal" : "status",
                    WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
    }
    return status == 0;
}

/// Waits for output until `deadline` and shows it. Returns false if a program has failed.
bool ShowNext(std::vector<Program>& programs, Clock::time_point deadline) {
    std::vector<pollfd> outputs;
    outputs.reserve(programs.size());
    for (const Program& program : programs) {
        outputs.push_back({program.output, POLLIN, 0});  // poll ignores a negative descriptor
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    poll(outputs.data(), outputs.size(),
         deadline == Clock::time_point::max() ? -1 : static_cast<int>(std::max<long long>(left, 0)));
    bool isWell = true;
    for (std::size_t at = 0; at < programs.size(); ++at) {
        if (outputs[at].revents != 0 && !ShowOutput(programs[at])) {
            isWell = HasSucceeded(programs[at]) && isWell;
        }
    }
    return isWell;
}

/// Shows the output of all programs until they have ended. Returns whether all succeeded. After a failure
/// it ends the others when kTimeToEnd has passed: a program that never met the failed one is not told of
/// its loss, and may wait for it for ever.
bool AwaitAll(std::vector<Program> programs) {
    bool allSucceeded = true;
    Clock::time_point deadline = Clock::time_point::max();
    const auto runs = [](const Program& program) { return program.output >= 0; };
    while (std::any_of(programs.begin(), programs.end(), runs)) {
        if (!ShowNext(programs, deadline) && allSucceeded) {
            allSucceeded = false;
            deadline = Clock::now() + kTimeToEnd;
        }
        if (Clock::now() >= deadline) {
            deadline = Clock::time_point::max();
            for (const Program& program : programs) {
                if (runs(program)) {
                    std::printf("launcher: ends %s\n", program.name.c_str());
                    kill(program.pid, SIGTERM);
                }
            }
        }
    }
    return allSucceeded;
}

}  // namespace

int main(int argc, char** argv) try {
    std::filesystem::path directory;
    std::string domain = fmt::format("analysis-{}", getpid());
    std::string steps = "10";
    std::string pauseAt = "1000";  // never
    std::string stopAt = "1000";   // never
    CLI::App options("Runs an analysis.");
    options.add_option("directory", directory, "where it works")->required();
    options.add_option("--domain", domain,
                       "where its programs meet (default: analysis-<this process's number>)");
    options.add_option("--steps", steps, "number of the solver's steps");
    options.add_option("--pause-at", pauseAt,
                       "at this percentage, the solver waits until a stop is asked for");
    options.add_option("--stop-at", stopAt, "at this percentage, the monitor asks the solver to stop");
    CLI11_PARSE(options, argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    std::printf("launcher: the domain is %s\n", domain.c_str());
    const std::string domainOption = fmt::format("--domain={}", domain);
    std::vector<Program> programs;
    programs.push_back(
        Start("monitor", directory / "monitor", {domainOption, fmt::format("--stop-at={}", stopAt)}));
    programs.push_back(Start("relay", directory, {domainOption}));
    programs.push_back(
        Start("solver", directory / "solver",
              {domainOption, fmt::format("--steps={}", steps), fmt::format("--pause-at={}", pauseAt)}));
    return AwaitAll(std::move(programs)) ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const std::exception& error) {
    std::fprintf(stderr, "launcher: %s\n", error.what());
    return EXIT_FAILURE;
}
