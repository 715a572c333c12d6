// Processes that are busy with messages and files and are killed at random moments, or are very many. Each
// test says what it did and with which seed; ZYL_SOAK_SEED repeats one, ZYL_SOAK_SECONDS sets how long it
// goes on.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include "Application.h"
#include "Soak.h"
#include "ZYLMsgBBAPI.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

constexpr std::size_t kSizes[] = {0, 1, 65536, 200'000, 700'001};

/// The file to transfer as the n-th.
std::string Source(int n) {
    return std::to_string(kSizes[static_cast<std::size_t>(n) % std::size(kSizes)]);
}

std::vector<std::string> LinesWith(const std::string& word, const std::string& output) {
    std::istringstream lines(output);
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(word) != std::string::npos) {
            found.push_back(line);
        }
    }
    return found;
}

/// The number behind a word of a line.
int NumberAfter(const std::string& word, const std::string& line) {
    const std::size_t at = line.find(word);
    return at != std::string::npos ? std::atoi(line.c_str() + at + word.size()) : 0;
}

std::string OwnPid() {
    return std::to_string(getpid());
}

/// A sender, a receiver and a watcher, which start and end together many times, each time with another one of
/// them killed.
class KilledPeer : public Soak {
  protected:
    KilledPeer() {
        for (const std::size_t size : kSizes) {
            MakeFile(m_from + "/" + std::to_string(size), size);
            m_sources[std::to_string(size)] = FileBytes(m_from + "/" + std::to_string(size));
        }
    }

    /// Sends texts with the numbers from 1 on, each followed by a file. When SendFile or ReceiveFile returns
    /// the copy is taken for whole. Stops when the watcher is gone, and waits for no receiver that is.
    int Sender() const {
        bool isWatched = true;
        const Losses losses([&](int, const std::string& application) {
            if (application == "receiver") {
                std::exit(0);
            }
            isWatched = isWatched && application != "watcher";
        });
        Application me("sender", &losses);
        Tell("ready " + OwnPid());
        int n = 0;
        while (isWatched) {
            ++n;
            Application::Say("receiver", std::to_string(n));
            const std::string file = Source(n);
            const std::string copy = std::to_string(n);
            if (n % 2 == 0) {
                me.files.SendFile("sender", m_from.c_str(), "", file.c_str(), "receiver", m_to.c_str(), "",
                                  copy.c_str());
            } else {
                me.files.ReceiveFile("receiver", m_from.c_str(), "", file.c_str(), "sender", m_to.c_str(), "",
                                     copy.c_str());
            }
            m_tally.errors += me.files.LastOutcome().ok ? 0 : 1;
            Tell("whole " + copy);
        }
        Application::Say("receiver", "done");
        return 0;
    }

    int Receiver() const {
        int heard = 0;
        int* end = nullptr;
        const Losses losses([&](int, const std::string& application) {
            if (application == "sender") {
                std::exit(0);
            }
        });
        Application me("receiver", &losses, new Texts([&](const std::string&, const std::string& text) {
                           if (text == "done") {
                               *end = 0;
                           } else if (text != std::to_string(++heard)) {
                               ++m_tally.errors;
                           }
                           ++m_tally.messages;
                       }));
        end = &me.endingCondition;
        Tell("ready " + OwnPid());
        ZYLMsgBBAPI::WaitingLoop(Domain(), -1, me.endingCondition);
        return 0;
    }

    static int Watcher() {
        std::set<std::string> lost;
        int* end = nullptr;
        const Losses losses([&](int pid, const std::string& application) {
            Tell("lost " + std::to_string(pid) + " " + application);
            lost.insert(application);
            *end = lost.contains("sender") && lost.contains("receiver") ? 0 : -1;
        });
        Application me("watcher", &losses);
        end = &me.endingCondition;
        Tell("ready " + OwnPid());
        ZYLMsgBBAPI::WaitingLoop(Domain(), -1, me.endingCondition);
        return 0;
    }

    static int Auditor() {
        const Losses losses([](int pid, const std::string& application) {
            Tell("lost " + std::to_string(pid) + " " + application);
        });
        Application me("auditor", &losses);
        Tell("ready");
        me.ListenUntilDone();
        return 0;
    }

    std::unique_ptr<Process> Start(int role) const {
        return std::make_unique<Process>([this, role] {
            return role == 0 ? Sender() : role == 1 ? Receiver() : Watcher();
        });
    }

    /// Kills a process before it knows what happens to it. Gives its number, 0 when it had not come so far as
    /// to be known to others.
    int KillWhileItStarts(int role) {
        const auto process = Start(role);
        PauseForUpTo(6000);
        process->Kill(SIGKILL);
        ++m_faults;
        EXPECT_EQ(process->Wait(), "signal 9");
        return NumberAfter("ready ", process->Output());
    }

    void CheckCopies(const std::string& senderSaid) {
        const std::vector<std::string> whole = LinesWith("whole ", senderSaid);
        std::size_t copies = 0;
        for (const auto& entry : std::filesystem::directory_iterator(m_to)) {
            copies += entry.is_regular_file() ? 1 : 0;
        }
        EXPECT_THAT(copies, ::testing::AnyOf(whole.size(), whole.size() + 1));
        for (const std::string& line : whole) {
            const int n = NumberAfter("whole ", line);
            const std::string& source = m_sources.at(Source(n));
            ASSERT_TRUE(FileBytes(m_to + "/" + std::to_string(n)) == source) << "copy " << n << " differs";
            ++m_tally.files;
            m_tally.bytes += source.size();
        }
    }

    /// Starts all three, kills one, and waits for the end of the others. Gives the numbers of all.
    std::set<int> Round(int victim) {
        std::filesystem::create_directory(m_to);
        std::unique_ptr<Process> processes[3];
        std::vector<int> order{0, 1, 2};
        std::swap(order[0], order[static_cast<std::size_t>(Random(0, 2))]);
        for (const int role : order) {
            processes[role] = Start(role);
        }
        int pids[3];
        for (int role = 0; role < 3; ++role) {
            pids[role] = NumberAfter("ready ", processes[role]->AwaitLine("ready "));
        }
        PauseForUpTo(40'000);
        processes[victim]->Kill(SIGKILL);
        ++m_faults;
        for (int role = 0; role < 3; ++role) {
            EXPECT_EQ(processes[role]->Wait(), role == victim ? "signal 9" : "status 0")
                << processes[role]->Output();
        }
        if (victim != 2) {
            const std::vector<std::string> reports = LinesWith("lost ", processes[2]->Output());
            EXPECT_THAT(reports,
                        ::testing::UnorderedElementsAre("lost " + std::to_string(pids[0]) + " sender",
                                                        "lost " + std::to_string(pids[1]) + " receiver"));
        }
        CheckCopies(processes[0]->Output());
        std::filesystem::remove_all(m_to);
        return {pids[0], pids[1], pids[2]};
    }

    const std::string m_from = m_directory / "from";
    const std::string m_to = m_directory / "to";
    std::map<std::string, std::string> m_sources;
};

TEST_P(KilledPeer, IsReportedOnceAndHarmsNobody) {
    Process auditor([] { return Auditor(); });
    auditor.AwaitLine("ready");
    std::set<int> lives;
    while (HasTime(20)) {
        const int victim = Random(0, 2);
        std::set<int> ended;
        if (Random(0, 3) == 0) {
            ended.insert(KillWhileItStarts(victim));
        }
        ended.merge(Round(victim));
        ended.erase(0);
        lives.insert(ended.begin(), ended.end());
        while (!ended.empty() && !HasFailure()) {
            ended.erase(NumberAfter("lost ", auditor.AwaitLine("lost ")));
        }
    }
    Process closer([] {
        const Application me("closer");
        Application::Say("auditor", "done");
        return 0;
    });
    EXPECT_EQ(closer.Wait(), "status 0");
    EXPECT_EQ(auditor.Wait(), "status 0");
    std::map<int, int> reports;
    for (const std::string& line : LinesWith("lost ", auditor.Output())) {
        EXPECT_EQ(++reports[NumberAfter("lost ", line)], 1) << line;
    }
    for (const int pid : lives) {
        EXPECT_EQ(reports[pid], 1) << pid;
    }
    EXPECT_EQ(m_tally.errors, 0U);
    EXPECT_LE(BackboneFiles().size(), 8U);  // the leftovers of one life each, however many there were
}

INSTANTIATE_TEST_SUITE_P(Lane, KilledPeer, ::testing::Values("memory", "socket"), LaneName);

/// Plays a role in one child after another, for as long as they are killed.
int Keep(const std::function<int()>& role) {
    for (;;) {
        std::fflush(nullptr);
        const pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            std::exit(role());
        }
        int status = 0;
        waitpid(pid, &status, 0);
        if (!WIFSIGNALED(status)) {
            return WEXITSTATUS(status);
        }
        Tell("ended by signal " + std::to_string(WTERMSIG(status)));
    }
}

/// A sender and a receiver of files that are killed at any time and start again at once under their names.
/// The receiver greets each life of the sender and tells of each file that it has it. Both give their
/// process numbers, for what one hears may come from an earlier life of the other.
class RestartedPeer : public Soak {
  protected:
    RestartedPeer() {
        for (const std::size_t size : kSizes) {
            MakeFile(m_from + "/" + std::to_string(size), size);
        }
        std::filesystem::create_directory(m_to);
    }

    int Sender() {
        int receiver = 0;
        std::string had;
        int news = -1;
        const Losses losses([&](int pid, const std::string&) {
            receiver = pid == receiver ? 0 : receiver;
            news = 0;
        });
        Application me("sender", &losses, new Texts([&](const std::string&, const std::string& text) {
                           receiver = text.starts_with("hello ") ? NumberAfter("hello ", text) : receiver;
                           had = text;
                           news = 0;
                       }));
        const auto await = [&](const std::function<bool()>& come) {
            while (!come()) {
                news = -1;
                ZYLMsgBBAPI::WaitingLoop(Domain(), -1, news);
            }
        };
        Application::Say("receiver", "start");
        for (int n = 1, met = 0;; ++n) {
            await([&] { return receiver != 0; });
            const int life = receiver;
            const std::string copy = OwnPid() + "-" + std::to_string(n);
            me.files.ISendFile("sender", m_from.c_str(), "", Source(n).c_str(), "receiver", m_to.c_str(), "",
                               copy.c_str());
            Application::Say("receiver", copy);
            const std::string whole = copy + " at " + std::to_string(life);
            await([&] { return had == whole || receiver != life; });
            if (had != whole) {
                continue;
            }
            const std::string bytes = FileBytes(m_to + "/" + copy);
            m_tally.errors += bytes == FileBytes(m_from + "/" + Source(n)) ? 0 : 1;
            m_tally.bytes += bytes.size();
            ++m_tally.files;
            std::filesystem::remove(m_to + "/" + copy);
            if (life != met) {
                Tell("sender " + OwnPid() + " has met receiver " + std::to_string(life));
                met = life;
            }
        }
    }

    static int Receiver() {
        Tell("life " + OwnPid());
        Application* self = nullptr;
        const Losses losses(
            [&](int, const std::string& application) { self->files.ApplicationLost(application.c_str()); });
        Application me("receiver", &losses, new Texts([](const std::string&, const std::string& text) {
                           Application::Say("sender",
                                            text == "start" ? "hello " + OwnPid() : text + " at " + OwnPid());
                       }));
        self = &me;
        Application::Say("sender", "hello " + OwnPid());
        ZYLMsgBBAPI::WaitingLoop(Domain(), -1, me.endingCondition);
        return 0;
    }

    const std::string m_from = m_directory / "from";
    const std::string m_to = m_directory / "to";
};

/// How a receiver ends, by the rules of file transfer, that gets the rest of a file which its earlier life
/// has begun.
bool IsEndOfABrokenTransfer(const std::string& line) {
    return line.find("havent initialized the file for app") != std::string::npos ||
           line.find("itr != m_receiveFileMap.end()") != std::string::npos;
}

TEST_P(RestartedPeer, IsMetAgainAndTransfersGoOn) {
    Process receiver([] { return Keep([] { return Receiver(); }); });
    Process sender([&] { return Keep([&] { return Sender(); }); });
    std::set<int> killed;
    int life = 0;
    while (HasTime(8)) {
        int pids[2];
        do {
            const std::string met = sender.AwaitLine("has met");
            pids[0] = NumberAfter("sender ", met);
            pids[1] = NumberAfter("receiver ", met);
        } while (!HasFailure() && (killed.contains(pids[0]) || killed.contains(pids[1])));
        if (pids[1] != std::exchange(life, pids[1])) {
            receiver.AwaitLine("life " + std::to_string(life));
        }
        PauseForUpTo(20'000);
        const int victims = Random(1, 3);
        for (int role = 0; role < 2 && !HasFailure(); ++role) {
            if ((victims & 1 << role) != 0) {
                kill(pids[role], SIGKILL);
                killed.insert(pids[role]);
                ++m_faults;
            }
        }
    }
    sender.Kill(SIGKILL);
    receiver.Kill(SIGKILL);
    EXPECT_EQ(sender.Wait(), "signal 9");
    EXPECT_EQ(receiver.Wait(), "signal 9");
    EXPECT_EQ(m_tally.errors, 0U);
    EXPECT_GT(m_tally.files, 0U);
    EXPECT_THAT(LinesWith("ended by", sender.Output()), ::testing::Each("ended by signal 9"));
    std::size_t brokenTransfers = 0;
    for (const std::string& line : LinesWith("AssertionFailed:", receiver.Output())) {
        EXPECT_TRUE(IsEndOfABrokenTransfer(line)) << line;
        ++brokenTransfers;
    }
    EXPECT_LE(LinesWith("ended by signal 6", receiver.Output()).size(), brokenTransfers);
    EXPECT_THAT(receiver.Output(), Not(HasSubstr("ended by signal 11")));
}

INSTANTIATE_TEST_SUITE_P(Lane, RestartedPeer, ::testing::Values("memory", "socket"), LaneName);

/// FNV-1a.
std::uint64_t Hash(const std::string& bytes) {
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (const char byte : bytes) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3U;
    }
    return hash;
}

/// Very many applications that all send to all, texts that bear their number and hash; some of them also send
/// files to the first one.
class Crowd : public Soak {
  protected:
    static constexpr int kApplications = 40;
    static constexpr int kSources = 12;
    static constexpr int kFiles = 5;
    static constexpr int kMessages = 30;

    static std::string Name(int application) { return "application " + std::to_string(application); }

    int Member(int self) {
        std::map<std::string, int> heard;
        int complete = 0;
        int* end = nullptr;
        Application me(Name(self), nullptr,
                       new Texts([&](const std::string& sender, const std::string& text) {
                           const std::string body = text.substr(text.find(':') + 1);
                           const std::string head = std::to_string(++heard[sender]) + " for " + Name(self);
                           const bool isRight = text == head + " #" + std::to_string(Hash(body)) + ":" + body;
                           m_tally.errors += isRight ? 0 : 1;
                           m_tally.bytes += body.size();
                           ++m_tally.messages;
                           complete += heard[sender] == kMessages ? 1 : 0;
                           *end = complete == kApplications - 1 ? 0 : -1;
                       }));
        end = &me.endingCondition;
        std::minstd_rand random(static_cast<unsigned>(self) + 1);
        for (int n = 1; n <= kMessages; ++n) {
            if (self >= 1 && self <= kSources && n % (kMessages / kFiles) == 0) {
                SendFile(me, self, n);
            }
            for (int target = 0; target < kApplications; ++target) {
                if (target != self) {
                    const std::string body(random() % 6000, static_cast<char>('a' + random() % 26));
                    Application::Say(Name(target), std::to_string(n) + " for " + Name(target) + " #" +
                                                       std::to_string(Hash(body)) + ":" + body);
                }
            }
        }
        ZYLMsgBBAPI::WaitingLoop(Domain(), -1, me.endingCondition);
        return 0;
    }

    void SendFile(Application& me, int self, int n) const {
        const std::string from = From(self), to = To(self), file = Source(n), copy = std::to_string(n);
        me.files.SendFile(Name(self).c_str(), from.c_str(), "", file.c_str(), Name(0).c_str(), to.c_str(), "",
                          copy.c_str());
    }

    std::string From(int source) const { return m_directory / ("from " + std::to_string(source)); }
    std::string To(int source) const { return m_directory / ("to " + std::to_string(source)); }
};

TEST_P(Crowd, HearsEveryMessageInOrderAndGetsEveryFile) {
    for (int source = 1; source <= kSources; ++source) {
        for (const std::size_t size : kSizes) {
            MakeFile(From(source) + "/" + std::to_string(size), size);
        }
        std::filesystem::create_directory(To(source));
    }
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
    for (int source = 1; source <= kSources; ++source) {
        for (int n = kMessages / kFiles; n <= kMessages; n += kMessages / kFiles) {
            EXPECT_SAME_FILE(From(source) + "/" + Source(n), To(source) + "/" + std::to_string(n));
            m_tally.bytes += std::filesystem::file_size(From(source) + "/" + Source(n));
            ++m_tally.files;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Lane, Crowd, ::testing::Values("memory", "socket"), LaneName);

}  // namespace
