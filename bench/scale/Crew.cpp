#include "Crew.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace {

std::system_error SystemError(const char* call) {
    return {errno, std::generic_category(), call};
}

std::array<int, 2> MakePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw SystemError("pipe2");
    }
    return ends;
}

}  // namespace

/// A mark is written whole: it is smaller than what a pipe takes in one piece.
void Member::Tell(Mark::What what, double figure) const {
    const Mark mark{what, Clock::now(), figure};
    if (write(m_marks, &mark, sizeof mark) != sizeof mark) {
        throw SystemError("write");
    }
}

Crew::Crew(std::size_t size, const Work& work) {
    const auto [startRead, startWrite] = MakePipe();
    const auto [marksRead, marksWrite] = MakePipe();
    m_start = startWrite;
    m_marks = marksRead;
    for (std::size_t number = 0; number < size; ++number) {
        const pid_t member = fork();
        if (member < 0) {
            throw SystemError("fork");
        }
        if (member == 0) {
            close(startWrite);
            close(marksRead);
            Run(work, Member(number, marksWrite), startRead);
        }
        m_members.push_back(member);
    }
    close(startRead);
    close(marksWrite);
}

void Crew::Run(const Work& work, const Member& member, int start) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    char byte = 0;
    if (read(start, &byte, 1) != 0) {
        _exit(1);
    }
    close(start);
    work(member);
    for (;;) {
        pause();
    }
}

Crew::~Crew() {
    for (const pid_t member : m_members) {
        if (member > 0) {
            kill(member, SIGKILL);
        }
    }
    for (pid_t& member : m_members) {
        End(member);
    }
    close(m_start);
    close(m_marks);
}

void Crew::End(pid_t& member) {
    if (member > 0) {
        kill(member, SIGKILL);
        waitpid(std::exchange(member, -1), nullptr, 0);
    }
}

Clock::time_point Crew::Start() {
    const Clock::time_point now = Clock::now();
    close(std::exchange(m_start, -1));
    return now;
}

std::vector<Mark> Crew::Await(std::size_t count, std::chrono::seconds limit) const {
    const Clock::time_point end = Clock::now() + limit;
    std::vector<Mark> marks;
    while (marks.size() < count) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        pollfd readable{m_marks, POLLIN, 0};
        Mark mark{};
        if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) == 0 ||
            read(m_marks, &mark, sizeof mark) != sizeof mark) {
            break;
        }
        marks.push_back(mark);
    }
    return marks;
}

Clock::time_point Crew::Kill(std::size_t number) {
    const Clock::time_point now = Clock::now();
    End(m_members.at(number));
    return now;
}
