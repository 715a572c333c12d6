#include "Child.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

struct Pipe {
    Pipe() {
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("cannot make a pipe");
        }
    }
    std::array<int, 2> ends{};
};

}  // namespace

Child::Child(const std::vector<std::string>& command) : m_name(command.front()) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    const Pipe input;
    const Pipe output;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.ends[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.ends[1], STDOUT_FILENO);
    const int failed = posix_spawnp(&m_pid, arguments.front(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(input.ends[0]);
    close(output.ends[1]);
    m_input = input.ends[1];
    m_output = output.ends[0];
    if (failed != 0) {
        m_pid = -1;
        throw std::runtime_error(fmt::format("cannot start {}", m_name));
    }
}

Child Child::InRole(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{"/proc/self/exe"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Child child(command);
    child.m_name = arguments.at(1);
    return child;
}

Child::Child(Child&& other) noexcept
    : m_name(std::move(other.m_name)),
      m_pid(std::exchange(other.m_pid, -1)),
      m_input(std::exchange(other.m_input, -1)),
      m_output(std::exchange(other.m_output, -1)) {}

Child::~Child() {
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    for (const int end : {m_input, m_output}) {
        if (end >= 0) {
            close(end);
        }
    }
}

Figures Child::Finish() {
    close(std::exchange(m_input, -1));
    std::string printed;
    std::array<char, 4096> buffer{};
    for (ssize_t count = 0; (count = read(m_output, buffer.data(), buffer.size())) > 0;) {
        printed.append(buffer.data(), static_cast<std::size_t>(count));
    }
    int status = 0;
    waitpid(std::exchange(m_pid, -1), &status, 0);
    if (status != 0) {
        throw std::runtime_error(fmt::format("the process '{}' failed", m_name));
    }
    Figures figures;
    std::istringstream lines(printed);
    std::string name;
    for (double value = 0; lines >> name >> value;) {
        figures[name] = value;
    }
    return figures;
}
