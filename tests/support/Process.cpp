#include "Process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <stdexcept>

namespace {

/// Long for a loaded machine under a sanitizer, and shorter than the limit that ctest sets.
constexpr unsigned kDeadlineInSeconds = 100;

}  // namespace

Process::Process(const std::string& command)
    : Process([&] { return execl("/bin/sh", "sh", "-c", command.c_str(), nullptr); }) {}

Process::Process(const std::function<int()>& role) {
    std::fflush(nullptr);
    int orders[2];
    int ends[2];
    if (pipe2(orders, O_CLOEXEC) != 0 || pipe2(ends, O_CLOEXEC) != 0 || (m_pid = fork()) < 0) {
        throw std::runtime_error("cannot start a process");
    }
    setpgid(m_pid, 0);  // a group with all that it starts
    if (m_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        signal(SIGPIPE, SIG_DFL);
        dup2(orders[0], STDIN_FILENO);
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        const int status = role();
        std::exit(::testing::Test::HasFailure() ? EXIT_FAILURE : status);
    }
    close(orders[0]);
    close(ends[1]);
    m_input = orders[1];
    m_pipe = ends[0];
}

Process::~Process() {
    if (IsThere()) {
        kill(-m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    close(m_input);
    close(m_pipe);
}

void Process::Say(const std::string& line) const {
    const std::string bytes = line + '\n';
    signal(SIGPIPE, SIG_IGN);  // an error of the test, not its end
    EXPECT_EQ(write(m_input, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

bool Process::ReadMore() {
    std::array<char, 4096> bytes{};
    const ssize_t count = read(m_pipe, bytes.data(), bytes.size());
    m_output.append(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    return count > 0;
}

std::string Process::AwaitLine(const std::string& text) {
    for (;;) {
        const std::size_t end = m_output.find('\n', m_awaited);
        if (end != std::string::npos) {
            std::string line = m_output.substr(m_awaited, end - m_awaited);
            m_awaited = end + 1;
            if (line.find(text) != std::string::npos) {
                return line;
            }
        } else if (!ReadMore()) {
            ADD_FAILURE() << "no line with \"" << text << "\" in:\n" << m_output;
            return {};
        }
    }
}

void Process::Kill(int signal) const {
    kill(m_pid, signal);
}

std::string Process::Wait() {
    while (ReadMore()) {
    }
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = -1;
    return WIFSIGNALED(status) ? fmt::format("signal {}", WTERMSIG(status))
                               : fmt::format("status {}", WEXITSTATUS(status));
}

WithProcesses::WithProcesses() {
    std::filesystem::create_directory(m_directory / "backbone");
    std::filesystem::permissions(m_directory / "backbone", std::filesystem::perms::owner_all);
    setenv("ZYL_BACKBONE_DIR", (m_directory / "backbone").c_str(), 1);
    RestartDeadline();
}

OnLane::OnLane() {
    setenv("ZYL_BACKBONE_LANE", GetParam(), 1);
}

void WithProcesses::RestartDeadline() {
    alarm(kDeadlineInSeconds);
}

std::vector<std::string> WithProcesses::BackboneFiles() const {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(m_directory / "backbone")) {
        if (!entry.is_directory()) {
            files.push_back(entry.path().filename());
        }
    }
    return files;
}

void Tell(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void MakeFile(const std::string& path, std::size_t size) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    static std::mt19937_64 random(1);
    std::vector<std::uint64_t> words(size / sizeof(std::uint64_t) + 1);
    std::generate(words.begin(), words.end(), std::ref(random));
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(words.data()), static_cast<std::streamsize>(size));
}

std::string FileBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}
