// Faults of the world around: disks, files, limits, and processes that are slow or stand still.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <fstream>
#include <memory>

#include "Application.h"
#include "Soak.h"
#include "ZYLMsgBBAPI.h"

using ::testing::HasSubstr;

namespace {

std::size_t Occurrences(const std::string& word, const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        ++count;
    }
    return count;
}

class FileFaults : public EndToEnd {
  protected:
    FileFaults() {
        MakeFile(m_from + "/good", 200'000);
        std::filesystem::create_directory(m_to);
    }

    void Send(Application& me, const std::string& source, const std::string& target) const {
        me.files.SendFile("source", m_from.c_str(), "", source.c_str(), "target", m_to.c_str(), "",
                          target.c_str());
    }

    const std::string m_from = m_directory / "from";
    const std::string m_to = m_directory / "to";
};

/// The super-user reads what it likes; without its capabilities it does not.
void KeepToFileModes() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3]{};
    syscall(SYS_capset, &header, none);
}

TEST_F(FileFaults, ASourceThatCannotBeReadGivesAnEmptyCopyAndTheNextFileIsWhole) {
    std::filesystem::create_directory(m_from + "/directory");
    ASSERT_EQ(mkfifo((m_from + "/fifo").c_str(), 0600), 0);
    std::filesystem::create_symlink("/proc/self/mem", m_from + "/failing");
    MakeFile(m_from + "/unreadable", 1000);
    std::filesystem::permissions(m_from + "/unreadable", std::filesystem::perms::none);
    const std::string sources[] = {"missing", "directory", "fifo", "failing", "unreadable"};
    Process target([] {
        Application("target").ListenUntilDone();
        return 0;
    });
    Process source([&] {
        KeepToFileModes();
        Application me("source");
        for (const std::string& name : sources) {
            Send(me, name, name);
            Send(me, "good", name + "-next");
        }
        Application::Say("target", "done");
        return 0;
    });
    EXPECT_EQ(source.Wait(), "status 0") << source.Output();
    EXPECT_EQ(target.Wait(), "status 0") << target.Output();
    for (const std::string& name : sources) {
        EXPECT_EQ(FileBytes(m_to + "/" + name), "") << name;
        EXPECT_SAME_FILE(m_from + "/good", m_to + "/" + name + "-next");
    }
}

/// Gives this process a disk of its own with a little room, or where it may not have one a limit of its
/// files.
void MakeDiskOf(rlim_t size, const std::string& directory) {
    const std::string options = "size=" + std::to_string(size);
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", directory.c_str(), "tmpfs", 0, options.c_str()) != 0) {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{size, size};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
}

TEST_F(FileFaults, AFullDiskIsReportedOnceForEachFileAndSmallFilesStillArrive) {
    constexpr std::size_t kDisk = 256 * 1024;
    MakeFile(m_from + "/large", 3 * kDisk);
    MakeFile(m_from + "/small", 1000);
    Process target([&] {
        MakeDiskOf(kDisk, m_to);
        Application me("target", nullptr, nullptr, 1);
        me.ListenUntilDone();
        const std::string copy = FileBytes(m_to + "/large");
        Tell(!copy.empty() && FileBytes(m_from + "/large").starts_with(copy) ? "a prefix" : "no prefix");
        std::filesystem::remove(m_to + "/large");
        Application::Say("source", "done");
        me.ListenUntilDone(2);
        Tell(FileBytes(m_to + "/small") == FileBytes(m_from + "/small") ? "whole" : "not whole");
        return 0;
    });
    Process source([&] {
        Application me("source");
        Send(me, "large", "large");
        Tell(me.files.LastOutcome().text.GetUTF8());
        Application::Say("target", "done");
        me.ListenUntilDone();
        Send(me, "small", "small");
        Application::Say("target", "done");
        return 0;
    });
    EXPECT_EQ(source.Wait(), "status 0") << source.Output();
    EXPECT_EQ(target.Wait(), "status 0") << target.Output();
    const std::string failure = "cannot write all of file " + m_to + "/large: ";
    EXPECT_EQ(Occurrences(failure, target.Output()), 1U);
    EXPECT_THAT(source.Output(), HasSubstr("target reports: " + failure));
    EXPECT_THAT(target.Output(), HasSubstr("\na prefix\n"));
    EXPECT_THAT(target.Output(), HasSubstr("\nwhole\n"));
}

TEST_F(FileFaults, ASourceThatGrowsAndShrinksWhileItIsSentGivesAPrefixOfIt) {
    constexpr std::size_t kLeast = 1 << 20, kMost = 8 << 20, kStep = 50'000;
    constexpr int kCopies = 20;
    MakeFile(m_from + "/most", kMost);
    const std::string most = FileBytes(m_from + "/most");
    MakeFile(m_from + "/changing", 0);
    Process changer([&] {
        const int file = open((m_from + "/changing").c_str(), O_WRONLY | O_CLOEXEC);
        for (bool said = false;; said = true) {
            for (std::size_t size = 0; size < kMost; size += kStep) {
                const std::size_t step = std::min(kStep, kMost - size);
                if (pwrite(file, most.data() + size, step, static_cast<off_t>(size)) < 0) {
                    return 1;
                }
            }
            if (!said) {
                Tell("changing");
            }
            for (std::size_t size = kMost; size > kLeast; size -= kStep) {
                if (ftruncate(file, static_cast<off_t>(size)) != 0) {
                    return 1;
                }
            }
        }
    });
    changer.AwaitLine("changing");
    Process target([] {
        Application("target").ListenUntilDone();
        return 0;
    });
    Process source([&] {
        Application me("source");
        for (int copy = 0; copy < kCopies; ++copy) {
            Send(me, "changing", std::to_string(copy));
        }
        Application::Say("target", "done");
        return 0;
    });
    EXPECT_EQ(source.Wait(), "status 0") << source.Output();
    EXPECT_EQ(target.Wait(), "status 0") << target.Output();
    changer.Kill(SIGKILL);
    EXPECT_EQ(changer.Wait(), "signal 9");  // it went on all the time
    for (int copy = 0; copy < kCopies; ++copy) {
        const std::string bytes = FileBytes(m_to + "/" + std::to_string(copy));
        EXPECT_GE(bytes.size(), kLeast);
        EXPECT_TRUE(most.starts_with(bytes)) << copy;
    }
}

/// The figure of this process that /proc/self/status gives in KiB under a name, in bytes.
std::size_t Memory(const std::string& name) {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word && word != name + ":") {
    }
    std::size_t kibibytes = 0;
    status >> kibibytes;
    return kibibytes * 1024;
}

void Limit(__rlimit_resource resource, rlim_t value) {
    const rlimit limit{value, value};
    setrlimit(resource, &limit);
}

class Faults : public OnLane {
  protected:
    /// Counts losses as errors.
    Losses CountLosses() {
        return Losses([this](int, const std::string&) { ++m_tally.errors; });
    }
};

TEST_P(Faults, AReceiverShortOfDescriptorsSaysSoAndHearsTheNextOneWhenOthersHaveGone) {
    Process receiver([] {
        Application me("receiver");
        Limit(RLIMIT_NOFILE, 32);
        me.ListenUntilDone();
        return 0;
    });
    std::vector<std::unique_ptr<Process>> senders;
    std::string line;
    while (line.find("Too many open files; will try again") == std::string::npos && !HasFailure()) {
        senders.push_back(std::make_unique<Process>([name = "sender " + std::to_string(senders.size())] {
            const Application me(name);
            Application::Say("receiver", "here");
            Tell("said");
            return pause();
        }));
        senders.back()->AwaitLine("said");
        line = receiver.AwaitLine("");
    }
    const std::string last = "sender " + std::to_string(senders.size() - 1) + ": here";
    EXPECT_GT(senders.size(), 1U);
    senders.clear();
    receiver.AwaitLine(last);
    Process closer([] {
        const Application me("closer");
        Application::Say("receiver", "done");
        return 0;
    });
    EXPECT_EQ(closer.Wait(), "status 0");
    EXPECT_EQ(receiver.Wait(), "status 0");
}

#if !defined(__SANITIZE_ADDRESS__)  // its shadow memory is beyond any such limit
TEST_P(Faults, ASenderWithoutMemoryForALaneSendsAllTheSame) {
    MakeFile(m_directory / "file", 500'000);
    Process receiver([] {
        Application("receiver").ListenUntilDone();
        return 0;
    });
    Process sender([&] {
        Application me("sender");
        Limit(RLIMIT_AS, Memory("VmSize") + 1'000'000);
        const std::string directory = m_directory.Path();
        Application::Say("receiver", "a word");
        me.files.ISendFile("sender", directory.c_str(), "", "file", "receiver", directory.c_str(), "",
                           "copy");
        Application::Say("receiver", "done");
        return 0;
    });
    ASSERT_EQ(sender.Wait(), "status 0") << sender.Output();
    EXPECT_EQ(receiver.Wait(), "status 0");
    EXPECT_EQ(receiver.Output(), "sender: a word\nsender: done\n");
    EXPECT_SAME_FILE(m_directory / "file", m_directory / "copy");
}

TEST_P(Faults, AReceiverWithoutMemoryForAMessageClosesThatLinkAndHearsTheOthers) {
    Process receiver([] {
        Limit(RLIMIT_AS, Memory("VmSize") + (32 << 20));
        Application("receiver").ListenUntilDone();
        return 0;
    });
    Process sender([] {
        int lost = -1;
        const Losses losses([&](int, const std::string&) { lost = 0; });
        const Application me("sender", &losses);
        Application::Say("receiver", std::string(64 << 20, 'x'));
        ZYLMsgBBAPI::WaitingLoop(Domain(), -1, lost);
        return 0;
    });
    EXPECT_EQ(sender.Wait(), "status 0") << sender.Output();
    Process other([] {
        const Application me("other");
        Application::Say("receiver", "done");
        return 0;
    });
    EXPECT_EQ(other.Wait(), "status 0") << other.Output();
    EXPECT_EQ(receiver.Wait(), "status 0") << receiver.Output();
    EXPECT_THAT(receiver.Output(), HasSubstr("there is no memory for its next message\nother: done\n"));
}
#endif

TEST_P(Faults, ASlowReaderHoldsItsSenderBackAndIsNotTakenForLost) {
    constexpr int kMessages = 1500;
    constexpr std::size_t kSize = 64 * 1024;
    constexpr std::size_t kRoom = 24 << 20;
    Process receiver([&] {
        const Losses losses = CountLosses();
        int* end = nullptr;
        Application me("receiver", &losses, new Texts([&](const std::string&, const std::string& text) {
                           usleep(500);
                           const std::string number = std::to_string(++m_tally.messages);
                           m_tally.errors += text.size() == kSize && text.starts_with(number + " ") ? 0 : 1;
                           *end = m_tally.messages == kMessages ? 0 : -1;
                       }));
        end = &me.endingCondition;
        ZYLMsgBBAPI::WaitingLoop(Domain(), -1, me.endingCondition);
        return 0;
    });
    Process sender([&] {
        const Losses losses = CountLosses();
        const Application me("sender", &losses);
        std::string text(kSize, 'x');
        const std::size_t before = Memory("VmRSS");
        for (int n = 1; n <= kMessages; ++n) {
            const std::string number = std::to_string(n) + " ";
            number.copy(text.data(), number.size());
            Application::Say("receiver", text);
        }
        const std::size_t most = Memory("VmHWM");
        Tell(most < before + kRoom ? "bounded" : "grew to " + std::to_string(most));
        return 0;
    });
    EXPECT_EQ(sender.Wait(), "status 0");
    EXPECT_EQ(sender.Output(), "bounded\n");
    EXPECT_EQ(receiver.Wait(), "status 0") << receiver.Output();
    EXPECT_EQ(m_tally.messages, static_cast<unsigned>(kMessages));
    EXPECT_EQ(m_tally.errors, 0U);
}

/// A sender of files to a receiver, each with a word to a watcher; each of the three counts what it does.
class StoppedProcess : public Faults {
  protected:
    int Sender() {
        bool isEnough = false;
        const Losses losses = CountLosses();
        Application me("sender", &losses,
                       new Texts([&](const std::string&, const std::string&) { isEnough = true; }));
        const std::string directory = m_directory.Path();
        int n = 0;
        while (!isEnough) {
            ++n;
            for (const char* peer : {"receiver", "watcher"}) {
                Application::Say(peer, std::to_string(n));
            }
            me.files.SendFile("sender", directory.c_str(), "", "file", "receiver", directory.c_str(), "",
                              "copy");
            ++m_tally.files;
        }
        Application::Say("receiver", "done");
        Application::Say("watcher", "done");
        return 0;
    }

    /// Counts the texts that come, which must bear the numbers from 1 on.
    int Listener(const char* name, std::atomic<std::uint64_t>& counter) {
        int* end = nullptr;
        const Losses losses = CountLosses();
        Application me(name, &losses, new Texts([&](const std::string&, const std::string& text) {
                           if (text == "done") {
                               *end = 0;
                           } else {
                               m_tally.errors += text == std::to_string(++counter) ? 0 : 1;
                           }
                       }));
        end = &me.endingCondition;
        ZYLMsgBBAPI::WaitingLoop(Domain(), -1, me.endingCondition);
        return 0;
    }

    /// All three have done something more.
    void AwaitProgress() const {
        for (const auto* counter : {&m_tally.files, &m_tally.messages, &m_tally.bytes}) {
            const std::uint64_t before = *counter;
            while (*counter < before + 2) {
                usleep(1000);
            }
        }
    }
};

TEST_P(StoppedProcess, IsNotTakenForLost) {
    MakeFile(m_directory / "file", 300'000);
    Process receiver([&] { return Listener("receiver", m_tally.messages); });
    Process watcher([&] { return Listener("watcher", m_tally.bytes); });
    Process sender([&] { return Sender(); });
    AwaitProgress();
    for (const Process* process : {&receiver, &watcher, &sender}) {
        process->Kill(SIGSTOP);
        sleep(2);  // long beside the 100 ms in which a loss is reported
        process->Kill(SIGCONT);
        AwaitProgress();
    }
    EXPECT_EQ(m_tally.errors, 0U);
    Process closer([] {
        const Application me("closer");
        Application::Say("sender", "enough");
        return 0;
    });
    for (Process* process : {&closer, &sender, &receiver, &watcher}) {
        EXPECT_EQ(process->Wait(), "status 0");
        EXPECT_EQ(process->Output(), "");
    }
    EXPECT_SAME_FILE(m_directory / "file", m_directory / "copy");
}

INSTANTIATE_TEST_SUITE_P(Lane, Faults, ::testing::Values("memory", "socket"), LaneName);
INSTANTIATE_TEST_SUITE_P(Lane, StoppedProcess, ::testing::Values("memory", "socket"), LaneName);

}  // namespace
