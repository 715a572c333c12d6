// Starts a small analysis: the monitor in DIRECTORY/monitor, where model.dat is expected, the solver in
// DIRECTORY/solver, and the relay between them. Waits until all have ended. Its own status is 0 when theirs
// are.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

/// Starts the program `name`, which lies beside this one, in `directory`.
pid_t Start(const std::string& name, const std::filesystem::path& directory,
            const std::vector<std::string>& arguments) {
    const auto program = std::filesystem::canonical("/proc/self/exe").replace_filename(name).string();
    std::filesystem::create_directories(directory);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
        std::perror("launcher: cannot start a process");
        std::exit(EXIT_FAILURE);
    }
    if (pid == 0) {
        if (chdir(directory.c_str()) == 0) {
            execv(program.c_str(), argv.data());
        }
        std::perror(("launcher: cannot start " + program).c_str());
        _exit(127);
    }
    std::printf("launcher: %s is process %d\n", name.c_str(), pid);
    return pid;
}

/// Waits for all. That a solver is killed, the others notice by themselves; any other failure takes them
/// along, for they may be waiting for an application that has never come.
int AwaitAll(std::map<pid_t, std::string> running) {
    int failures = 0;
    while (!running.empty()) {
        int status = 0;
        const auto ended = running.extract(waitpid(-1, &status, 0));
        if (ended.empty() || status == 0) {
            continue;
        }
        ++failures;
        const std::string& name = ended.mapped();
        std::printf("launcher: %s ended with %s %d\n", name.c_str(),
                    WIFSIGNALED(status) ? "signal" : "status",
                    WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
        if (name == "solver" && WIFSIGNALED(status)) {
            continue;
        }
        for (const auto& [pid, other] : running) {
            kill(pid, SIGTERM);
        }
    }
    return failures;
}

}  // namespace

int main(int argc, char** argv) try {
    std::filesystem::path directory;
    std::string steps = "10";
    std::string pauseAt = "1000";  // never
    std::string stopAt = "1000";   // never
    CLI::App options("Runs an analysis.");
    options.add_option("directory", directory, "where it works")->required();
    options.add_option("--steps", steps, "number of the solver's steps");
    options.add_option("--pause-at", pauseAt,
                       "at this percentage, the solver waits until a stop is asked for");
    options.add_option("--stop-at", stopAt, "at this percentage, the monitor asks the solver to stop");
    CLI11_PARSE(options, argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    std::map<pid_t, std::string> running;
    running[Start("monitor", directory / "monitor", {"--stop-at=" + stopAt})] = "monitor";
    running[Start("relay", directory, {})] = "relay";
    running[Start("solver", directory / "solver", {"--steps=" + steps, "--pause-at=" + pauseAt})] = "solver";
    return AwaitAll(running) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const std::exception& error) {
    std::fprintf(stderr, "launcher: %s\n", error.what());
    return EXIT_FAILURE;
}
