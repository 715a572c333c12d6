// Processes that are busy with messages and files and are killed at random moments, or are very many. Each
// test says what it did and with which seed; ZYL_SOAK_SEED repeats one, ZYL_SOAK_SECONDS sets how long it
// goes on.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>

#include "Application.h"
#include "Process.h"

namespace {

/// What the processes of a test count together.
struct Tally {
    std::atomic<unsigned> messages = 0;
    std::atomic<unsigned> files = 0;
    std::atomic<unsigned> errors = 0;
};

class Soak : public OnLane {
  protected:
    Soak() {
        const char* seed = std::getenv("ZYL_SOAK_SEED");
        m_seed = seed != nullptr ? static_cast<unsigned>(std::stoul(seed)) : std::random_device{}();
        m_random.seed(m_seed);
        std::printf("ZYL_SOAK_SEED=%u\n", m_seed);
    }
    ~Soak() override {
        std::printf("%s: %d processes killed; verified: %u messages, %u files\n", GetParam(), m_kills,
                    m_tally.messages.load(), m_tally.files.load());
        m_tally.~Tally();
        munmap(&m_tally, sizeof(Tally));
    }

    /// Whether there is time for another round, of which each may last as long as a whole test. A test
    /// lasts `standard` seconds, or as many as ZYL_SOAK_SECONDS says.
    bool HasTime(int standard) const {
        const char* seconds = std::getenv("ZYL_SOAK_SECONDS");
        RestartDeadline();
        return !HasFailure() && std::chrono::steady_clock::now() - m_start <
                                    std::chrono::seconds(seconds != nullptr ? std::stoi(seconds) : standard);
    }
    int Random(int least, int most) { return std::uniform_int_distribution(least, most)(m_random); }
    /// A fault comes at any moment: this is the one thing that is not waited for by an event.
    void PauseForUpTo(int microseconds) { usleep(static_cast<useconds_t>(Random(0, microseconds))); }

    Tally& m_tally =
        *new (mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Tally;
    int m_kills = 0;

  private:
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    unsigned m_seed;
    std::mt19937 m_random;
};

/// The numbers behind a word in the lines that hold it.
std::vector<int> NumbersAfter(const std::string& word, const std::string& output) {
    std::vector<int> numbers;
    for (std::size_t at = 0; (at = output.find(word, at)) != std::string::npos; at += word.size()) {
        numbers.push_back(std::atoi(output.c_str() + at + word.size()));
    }
    return numbers;
}
int NumberAfter(const std::string& word, const std::string& line) {
    const std::vector<int> numbers = NumbersAfter(word, line);
    return numbers.empty() ? 0 : numbers.front();
}

constexpr std::size_t kSizes[] = {0, 1, 65536, 200'000, 700'001};

/// A sender and a receiver of files that are killed at any time and start again at once under their names.
/// The receiver greets each life of the sender and tells of each file that it has it. Both give their
/// process numbers, for what one hears may come from an earlier life of the other. An auditor hears of all
/// losses.
class RestartedPeer : public Soak {
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
                    receivers.insert(NumberAfter("hello ", text));
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
            m_tally.errors += FileBytes(m_to + "/" + copy) == FileBytes(m_from + "/" + source) ? 0 : 1;
            ++m_tally.files;
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

    static int Auditor() {
        Application me("auditor", {}, [](int pid, const std::string&) { Tell(fmt::format("lost {}", pid)); });
        Tell("ready");
        me.Listen();
        return 0;
    }

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

/// How a receiver ends, by the rules of file transfer, that gets the rest of a file which its earlier life
/// has begun.
bool IsEndOfABrokenTransfer(const std::string& line) {
    return line.find("havent initialized the file for app") != std::string::npos ||
           line.find("itr != m_receiveFileMap.end()") != std::string::npos;
}

TEST_P(RestartedPeer, IsReportedOnceForEachLifeAndMetAgain) {
    Process auditor([] { return Auditor(); });
    auditor.AwaitLine("ready");
    Process receiver([] { return Keep([] { return Receiver(); }); });
    Process sender([&] { return Keep([&] { return Sender(); }); });
    std::set<int> killed;
    do {
        int pids[2];
        do {
            const std::string met = sender.AwaitLine("has met");
            pids[0] = NumberAfter("sender ", met);
            pids[1] = NumberAfter("receiver ", met);
        } while (!HasFailure() && (killed.contains(pids[0]) || killed.contains(pids[1])));
        PauseForUpTo(20'000);
        const int victims = Random(1, 3);
        for (int role = 0; role < 2 && !HasFailure(); ++role) {
            if ((victims & 1 << role) != 0) {
                kill(pids[role], SIGKILL);
                killed.insert(pids[role]);
                ++m_kills;
            }
        }
    } while (HasTime(12));
    for (std::set<int> unheard = killed; !unheard.empty() && !HasFailure();) {
        unheard.erase(NumberAfter("lost ", auditor.AwaitLine("lost ")));
    }
    for (Process* process : {&sender, &receiver}) {
        process->Kill(SIGKILL);
        EXPECT_EQ(process->Wait(), "signal 9");
    }
    Process closer([] {
        const Application me("closer");
        Application::Say("auditor", "done");
        return 0;
    });
    EXPECT_EQ(closer.Wait(), "status 0");
    EXPECT_EQ(auditor.Wait(), "status 0");
    std::set<int> reported;
    for (const int pid : NumbersAfter("lost ", auditor.Output())) {
        EXPECT_TRUE(reported.insert(pid).second) << pid;
    }
    EXPECT_EQ(m_tally.errors, 0U);
    EXPECT_GT(m_tally.files, 0U);
    EXPECT_LE(BackboneFiles().size(), 8U);  // the leftovers of one life each, however many there were
    EXPECT_THAT(NumbersAfter("ended by signal ", sender.Output()), ::testing::Each(SIGKILL));
    std::istringstream lines(receiver.Output());
    std::ptrdiff_t brokenTransfers = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("AssertionFailed:") != std::string::npos) {
            EXPECT_TRUE(IsEndOfABrokenTransfer(line)) << line;
            ++brokenTransfers;
        }
    }
    const std::vector<int> ends = NumbersAfter("ended by signal ", receiver.Output());
    EXPECT_THAT(ends, ::testing::Each(::testing::AnyOf(SIGKILL, SIGABRT)));
    EXPECT_LE(std::count(ends.begin(), ends.end(), SIGABRT), brokenTransfers);
}

INSTANTIATE_TEST_SUITE_P(Lane, RestartedPeer, ::testing::Values("memory", "socket"), LaneName);

class Crowd : public Soak {
  protected:
    static constexpr int kApplications = 40;
    static constexpr int kMessages = 30;

    static std::string Name(int application) { return fmt::format("application {}", application); }
    /// The n-th text from one to another, of a size and with a letter of its own.
    static std::string Text(int n, const std::string& from, const std::string& to) {
        const std::string head = fmt::format("{} from {} to {} ", n, from, to);
        const std::size_t hash = std::hash<std::string>{}(head);
        return head + std::string(hash % 6000, static_cast<char>('a' + hash % 26));
    }

    int Member(int self) {
        std::map<std::string, int> heard;
        int complete = 0;
        Application me(Name(self), [&](const std::string& sender, const std::string& text) {
            const int n = ++heard[sender];
            m_tally.errors += text == Text(n, sender, Name(self)) ? 0 : 1;
            ++m_tally.messages;
            complete += n == kMessages ? 1 : 0;
            if (complete == kApplications - 1) {
                me.End();
            }
        });
        for (int n = 1; n <= kMessages; ++n) {
            for (int target = 0; target < kApplications; ++target) {
                if (target != self) {
                    Application::Say(Name(target), Text(n, Name(self), Name(target)));
                }
            }
        }
        me.Listen();
        return 0;
    }
};

TEST_P(Crowd, HearsEveryMessageInOrder) {
    std::vector<std::unique_ptr<Process>> members;
    for (int member = 0; member < kApplications; ++member) {
        members.push_back(std::make_unique<Process>([this, member] { return Member(member); }));
    }
    for (const auto& member : members) {
        EXPECT_EQ(member->Wait(), "status 0");
        EXPECT_EQ(member->Output(), "");
    }
    EXPECT_EQ(m_tally.errors, 0U);
    EXPECT_EQ(m_tally.messages, static_cast<unsigned>(kApplications * (kApplications - 1) * kMessages));
}

INSTANTIATE_TEST_SUITE_P(Lane, Crowd, ::testing::Values("memory", "socket"), LaneName);

}  // namespace
