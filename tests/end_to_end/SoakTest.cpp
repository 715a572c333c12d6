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
#include <set>

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

constexpr std::size_t kSizes[] = {0, 1, 65536, 200'000, 700'001};

/// A sender and a receiver of files that are killed at any time and start again at once under their names.
/// The receiver greets each life of the sender and tells of each file that it has it. Both give their
/// process numbers, for what one hears may come from an earlier life of the other.
class RestartedPeer : public OnLane {
  protected:
    RestartedPeer() {
        for (const std::size_t size : kSizes) {
            MakeFile(fmt::format("{}/{}", m_from, size), size);
        }
        std::filesystem::create_directory(m_to);
    }

    int Sender() {
        std::set<int> receivers;  // the lives that are heard of and not lost
        std::string had;
        Application me(
            "sender",
            [&](const std::string&, const std::string& text) {
                if (text.starts_with("hello ")) {
                    receivers.insert(std::stoi(text.substr(6)));
                } else {
                    had = text;
                }
                me.End();
            },
            [&](int pid, const std::string&) {
                receivers.erase(pid);
                me.End();
            });
        Application::Say("receiver", "start");
        for (int n = 1, met = 0;; ++n) {
            while (receivers.empty()) {
                me.Listen();
            }
            const int life = *receivers.rbegin();
            const std::string source =
                std::to_string(kSizes[static_cast<std::size_t>(n) % std::size(kSizes)]);
            const std::string copy = fmt::format("{}-{}", getpid(), n);
            const auto send = n % 2 == 0 ? &ZYLMsgFileTransfer::SendFile : &ZYLMsgFileTransfer::ISendFile;
            (me.files.*send)("sender", m_from.c_str(), "", source.c_str(), "receiver", m_to.c_str(), "",
                             copy.c_str());
            Application::Say("receiver", copy);
            const std::string whole = fmt::format("{} at {}", copy, life);
            while (had != whole && receivers.contains(life)) {
                me.Listen();
            }
            if (had != whole) {
                continue;
            }
            if (FileBytes(m_to + "/" + copy) != FileBytes(m_from + "/" + source)) {
                Tell(copy + " is broken");
            }
            std::filesystem::remove(m_to + "/" + copy);
            if (life != met) {
                Tell(fmt::format("sender {} has met receiver {}", getpid(), life));
                met = life;
            }
        }
    }

    /// Whichever of the two starts last finds the other there.
    static int Receiver() {
        const auto greet = [] { Application::Say("sender", fmt::format("hello {}", getpid())); };
        Application me(
            "receiver",
            [&](const std::string&, const std::string& text) {
                text == "start" ? greet()
                                : Application::Say("sender", fmt::format("{} at {}", text, getpid()));
            },
            [&](int, const std::string& application) {
                if (application == "sender") {
                    greet();
                }
            });
        greet();
        me.Listen();
        return 0;
    }

    /// Waits until two lives have met neither of which was killed.
    std::array<int, 2> AwaitMeeting(Process& sender) const {
        std::array<int, 2> lives{};
        do {
            const std::string line = sender.AwaitLine("has met");
            if (std::sscanf(line.c_str(), "sender %d has met receiver %d", &lives[0], &lives[1]) != 2) {
                break;
            }
        } while (m_killed.contains(lives[0]) || m_killed.contains(lives[1]));
        return lives;
    }

    std::set<int> m_killed;
    const std::string m_from = m_directory / "from";
    const std::string m_to = m_directory / "to";
};

/// Plays a role in one child after another, for as long as they are killed. Some are killed while they
/// start.
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

TEST_P(RestartedPeer, IsReportedOnceForEachLifeAndMetAgain) {
    const auto seed = static_cast<unsigned>(NumberFrom("ZYL_SOAK_SEED", std::random_device{}()));
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(NumberFrom("ZYL_SOAK_SECONDS", 12));
    std::mt19937 random(seed);
    Peer auditor;
    auditor.Begin("watch auditor");
    auditor.Account();
    Process receiver([] { return Keep([] { return Receiver(); }); });
    Process sender([&] { return Keep([&] { return Sender(); }); });
    while (!HasFailure() && std::chrono::steady_clock::now() < end) {
        RestartDeadline();
        const std::array<int, 2> lives = AwaitMeeting(sender);
        usleep(static_cast<useconds_t>(random() % 20'000));  // so that the end comes at any moment
        for (const unsigned victims = 1 + static_cast<unsigned>(random() % 3);
             const unsigned role : {0U, 1U}) {
            if ((victims & 1U << role) != 0 && !HasFailure()) {
                kill(lives[role], SIGKILL);
                m_killed.insert(lives[role]);
            }
        }
    }
    AwaitMeeting(sender);
    for (Process* process : {&sender, &receiver}) {
        process->Kill(SIGKILL);
        EXPECT_EQ(process->Wait(), "signal 9");
    }
    std::printf("ZYL_SOAK_SEED=%u: %zu processes killed\n", seed, m_killed.size());
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
