// A sender and a receiver of files that are killed at random moments, and start again at once. The test says with
// which seed; ZYL_SOAK_SEED repeats one, ZYL_SOAK_SECONDS sets how long it goes on.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <random>
#include <regex>

#include "Application.h"
#include "Peer.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

long NumberFrom(const char* variable, long standard) {
    const char* const text = std::getenv(variable);
    return text != nullptr ? std::stol(text) : standard;
}

/// How many matches the expression has.
std::ptrdiff_t Count(const std::string& expression, const std::string& text) {
    const std::regex regex(expression);
    return std::distance(std::sregex_iterator(text.begin(), text.end(), regex), std::sregex_iterator());
}

/// Plays a role in one child after another, for as long as they are killed.
int Keep(const std::function<int()>& role) {
    for (;;) {
        std::fflush(nullptr);
        const pid_t keeper = getpid();
        const pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != keeper) {
                _exit(EXIT_FAILURE);  // it was killed before that call
            }
            std::exit(role());
        }
        int status = 0;
        waitpid(pid, &status, 0);
        if (!WIFSIGNALED(status)) {
            return WEXITSTATUS(status);
        }
        Tell(fmt::format("ended by signal {}", WTERMSIG(status)));
    }
}

constexpr std::size_t kSizes[] = {0, 1, 65536, 200'000, 700'001};

/// A sender and a receiver of files that are killed at any time and start again at once under their names. Each tells
/// of each life.
class RestartedPeer : public OnLane {
  protected:
    RestartedPeer() {
        for (const std::size_t size : kSizes) {
            MakeFile(fmt::format("{}/{}", m_from, size), size);
        }
        std::filesystem::create_directory(m_to);
    }

    int Sender() const {
        Application me("sender");
        Tell(fmt::format("life {}", getpid()));
        for (std::size_t n = 0;; ++n) {
            const std::string source = std::to_string(kSizes[n % std::size(kSizes)]);
            const std::string copy = fmt::format("{}-{}", getpid(), n);
            me.files.SendFile("sender", m_from.c_str(), "", source.c_str(), "receiver", m_to.c_str(), "",
                              copy.c_str());
            if (me.files.LastOutcome().ok) {
                Tell(FileBytes(m_to + "/" + copy) == FileBytes(m_from + "/" + source) ? "a copy is whole"
                                                                                      : "a copy is broken");
            }
            std::filesystem::remove(m_to + "/" + copy);
        }
    }

    static int Receiver() {
        Application me("receiver");
        Tell(fmt::format("life {}", getpid()));
        me.Listen();
        return 0;
    }

    /// Waits for the next life of one of them, and gives its process number.
    static int AwaitLife(Process& keeper) {
        const std::string line = keeper.AwaitLine("life ");
        return line.empty() ? 0 : std::stoi(line.substr(5));
    }

    const std::string m_from = m_directory / "from";
    const std::string m_to = m_directory / "to";
};

TEST_P(RestartedPeer, IsReportedOnceForEachLifeAndMetAgain) {
    const auto seed = static_cast<unsigned>(NumberFrom("ZYL_SOAK_SEED", std::random_device{}()));
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(NumberFrom("ZYL_SOAK_SECONDS", 12));
    std::mt19937 random(seed);
    Peer auditor;
    auditor.Begin("watch auditor");
    auditor.Account();
    Process receiver([] { return Keep(Receiver); });
    Process sender([&] { return Keep([&] { return Sender(); }); });
    const std::array<Process*, 2> both{&sender, &receiver};
    std::array<int, 2> lives{AwaitLife(sender), AwaitLife(receiver)};
    int killed = 0;
    for (unsigned victims = 3; !HasFailure(); victims = 1 + static_cast<unsigned>(random() % 3)) {
        RestartDeadline();
        for (const unsigned role : {0U, 1U}) {
            if ((victims & 1U << role) != 0) {
                kill(lives[role], SIGKILL);
                ++killed;
            }
        }
        for (const unsigned role : {0U, 1U}) {
            if ((victims & 1U << role) != 0) {
                lives[role] = AwaitLife(*both[role]);
            }
        }
        sender.AwaitLine("a copy is whole");
        if (victims == 3 && std::chrono::steady_clock::now() >= end) {
            break;
        }
        usleep(static_cast<useconds_t>(random() % 20'000));  // so that the end comes at any moment
    }
    for (Process* process : both) {
        process->Kill(SIGKILL);
        EXPECT_EQ(process->Wait(), "signal 9");
    }
    std::printf("ZYL_SOAK_SEED=%u: %d processes killed\n", seed, killed);
    EXPECT_LE(BackboneFiles().size(), 8U) << "the leftovers of one life each, however many there were";

    const auto senders = Count("ended by signal 9\n", sender.Output());
    EXPECT_EQ(Count("ended by signal", sender.Output()), senders);
    EXPECT_THAT(sender.Output(), Not(HasSubstr("is broken")));
    // By the rules of file transfer, a receiver that gets the rest of a file which its earlier life has begun aborts.
    const auto broken =
        Count("AssertionFailed:.*(havent initialized the file for app|itr != m_receiveFileMap.end)",
              receiver.Output());
    const auto receivers = Count("ended by signal (6|9)\n", receiver.Output());
    EXPECT_EQ(Count("ended by signal", receiver.Output()), receivers);
    EXPECT_EQ(Count("AssertionFailed:", receiver.Output()), broken);
    EXPECT_LE(Count("ended by signal 6\n", receiver.Output()), broken);
    auditor.Begin(fmt::format("await 0 {}", senders + receivers + 2));
    const std::string account = auditor.Account();
    EXPECT_EQ(Count("sender lost after 0", account), senders + 1);
    EXPECT_EQ(Count("receiver lost after 0", account), receivers + 1);
}

INSTANTIATE_TEST_SUITE_P(Lane, RestartedPeer, ::testing::Values("memory", "socket"), LaneName);

}  // namespace
