// Faults of the world around real processes: a full disk, and no memory.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <fstream>

#include "Application.h"
#include "Process.h"

using ::testing::AllOf;
using ::testing::HasSubstr;

namespace {

/// Gives this process a disk of its own with a little room, or where it may not have one a limit of its
/// files.
void MakeDiskOf(rlim_t size, const std::string& directory) {
    const std::string options = fmt::format("size={}", size);
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", directory.c_str(), "tmpfs", 0, options.c_str()) != 0) {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{size, size};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
}

TEST_F(WithProcesses, AFullDiskIsReportedOnceForEachFileAndSmallFilesStillArrive) {
    constexpr std::size_t kDisk = 256 * 1024;
    const std::string from = m_directory / "from", to = m_directory / "to";
    MakeFile(from + "/large", 3 * kDisk);
    MakeFile(from + "/small", 1000);
    std::filesystem::create_directory(to);
    Process target([&] {
        MakeDiskOf(kDisk, to);
        Application me("target", {}, {}, 1);
        me.Listen();
        const std::string copy = FileBytes(to + "/large");
        Tell(!copy.empty() && FileBytes(from + "/large").starts_with(copy) ? "a prefix" : "no prefix");
        std::filesystem::remove(to + "/large");
        Application::Say("source", "done");
        me.Listen();
        Tell(FileBytes(to + "/small") == FileBytes(from + "/small") ? "whole" : "not whole");
        return 0;
    });
    Process source([&] {
        Application me("source");
        const auto send = [&](const char* file) {
            me.files.SendFile("source", from.c_str(), "", file, "target", to.c_str(), "", file);
            Tell(me.files.LastOutcome().text.GetUTF8());
            Application::Say("target", "done");
        };
        send("large");
        me.Listen();
        send("small");
        return 0;
    });
    EXPECT_EQ(source.Wait(), "status 0") << source.Output();
    EXPECT_EQ(target.Wait(), "status 0") << target.Output();
    const std::string failure = fmt::format("cannot write all of file {}/large: ", to);
    EXPECT_THAT(source.Output(), HasSubstr("target reports: " + failure));
    const std::string& said = target.Output();
    EXPECT_NE(said.find(failure), std::string::npos);
    EXPECT_EQ(said.find(failure), said.rfind(failure)) << said;
    EXPECT_THAT(said, AllOf(HasSubstr("\na prefix\n"), HasSubstr("\nwhole\n")));
}

#if !defined(__SANITIZE_ADDRESS__)  // its shadow memory is beyond any such limit

/// Lets this process have no more memory than it has now and `more` bytes.
void LimitMemoryTo(std::size_t more) {
    std::ifstream status("/proc/self/status");
    for (std::string word; word != "VmSize:";) {
        status >> word;
    }
    std::size_t kibibytes = 0;
    status >> kibibytes;
    const rlimit limit{kibibytes * 1024 + more, kibibytes * 1024 + more};
    setrlimit(RLIMIT_AS, &limit);
}

class OutOfMemory : public OnLane {};

TEST_P(OutOfMemory, ASenderWithoutMemoryForALaneSendsAllTheSame) {
    const std::string directory = m_directory.Path();
    MakeFile(m_directory / "file", 500'000);
    Process receiver([] {
        Application("receiver").Listen();
        return 0;
    });
    Process sender([&] {
        Application me("sender");
        LimitMemoryTo(1'000'000);
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

TEST_P(OutOfMemory, AReceiverWithoutMemoryForAMessageClosesThatLinkAndHearsTheOthers) {
    Process receiver([] {
        LimitMemoryTo(32 << 20);
        Application("receiver").Listen();
        return 0;
    });
    Process sender([] {
        Application me("sender", {}, [&](int, const std::string&) { me.End(); });
        Application::Say("receiver", std::string(64 << 20, 'x'));
        me.Listen();
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
    EXPECT_THAT(receiver.Output(),
                AllOf(HasSubstr("is closed: "), HasSubstr("memory"), HasSubstr("\nother: done\n")));
}

INSTANTIATE_TEST_SUITE_P(Lane, OutOfMemory, ::testing::Values("memory", "socket"), LaneName);
#endif

}  // namespace
