#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "QORFatalError.h"
#include "TemporaryDirectory.h"

namespace {

std::string Content(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(FatalErrorTest, AbortsAfterOneLineWithMessageDetailsFileAndLine) {
    EXPECT_EXIT(QORFatalError("AssertionFailed:a != NULL", nullptr, nullptr, nullptr, "Dir.m/src/Source", 42),
                testing::KilledBySignal(SIGABRT),
                "^Fatal error: AssertionFailed:a != NULL \\(Dir.m/src/Source:42\\)\n$");
    EXPECT_DEATH(QORFatalError("no port", "of", nullptr, "7", "S", -1),
                 "^Fatal error: no port of 7 \\(S:-1\\)\n$");
}

TEST(FatalErrorTest, BufferedStreamsAreNotLostEvenWhileAThreadReads) {
    const TemporaryDirectory directory;
    std::fflush(stdout);
    int silent[2];
    ASSERT_EQ(pipe(silent), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (std::freopen((directory / "out").c_str(), "w", stdout) == nullptr ||
            std::freopen((directory / "err").c_str(), "w", stderr) == nullptr) {
            _exit(1);
        }
        alarm(30);
        dup2(silent[0], STDIN_FILENO);
        std::thread([] { std::getchar(); }).detach();
        while (ftrylockfile(stdin) == 0) {
            funlockfile(stdin);
        }
        std::fputs("printed before", stdout);
        std::fputs("logged before", std::fopen((directory / "log").c_str(), "w"));
        QORFatalError("m", nullptr, nullptr, nullptr, "s", 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
    EXPECT_EQ(Content(directory / "out"), "printed before");
    EXPECT_EQ(Content(directory / "log"), "logged before");
    EXPECT_EQ(Content(directory / "err"), "Fatal error: m (s:1)\n");
}

}  // namespace
