#ifndef ZYL_TESTS_PROCESS_H
#define ZYL_TESTS_PROCESS_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"

/// A real process that a test has started. What it writes, to either stream, comes back to the test. It
/// does not outlive the test.
class Process {
  public:
    /// Plays `role` in a child of this process, whose exit status is the role's, or 1 where one of its
    /// expectations failed. The test itself never touches the backbone.
    explicit Process(const std::function<int()>& role);
    /// Executes a command of a shell.
    explicit Process(const std::string& command);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Writes a line to its standard input.
    void Say(const std::string& line) const;
    /// Waits for a line that holds `text` and returns it; without one the test fails, and the line is
    /// empty.
    std::string AwaitLine(const std::string& text);
    void Kill(int signal) const;
    /// Whether it was not waited for yet.
    bool IsThere() const { return m_pid > 0; }
    /// Waits for the end, of its own children too, and says how it came: "status 0", "signal 9".
    std::string Wait();
    /// What it has written so far, as far as one of the above has read it.
    const std::string& Output() const { return m_output; }

  private:
    bool ReadMore();

    pid_t m_pid = -1;
    int m_input = -1;
    int m_pipe = -1;
    std::string m_output;
    std::size_t m_awaited = 0;
};

/// A test with processes: it has a backbone directory of its own, and a deadline.
class WithProcesses : public ::testing::Test {
  protected:
    WithProcesses();

    /// Lets a test that goes on in rounds have the whole time for each.
    static void RestartDeadline();
    /// What lies in the backbone's directories.
    std::vector<std::string> BackboneFiles() const;

    TemporaryDirectory m_directory;
};

/// A test whose lanes are those of the parameter, "memory" or "socket".
class OnLane : public WithProcesses, public ::testing::WithParamInterface<const char*> {
  protected:
    OnLane();
};

inline std::string LaneName(const ::testing::TestParamInfo<const char*>& lane) {
    return lane.param;
}

/// Writes a line at once.
void Tell(const std::string& line);
/// Makes a file of random bytes, its directory included.
void MakeFile(const std::string& path, std::size_t size);
std::string FileBytes(const std::string& path);
/// Not with EXPECT_EQ, which would print megabytes.
#define EXPECT_SAME_FILE(a, b) \
    EXPECT_TRUE(FileBytes(a) == FileBytes(b)) << "the files " << (a) << " and " << (b) << " differ"

#endif
