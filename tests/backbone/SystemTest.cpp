// The seam to the operating system, as this machine keeps it. Two systems in one process are two processes
// for all that matters here, but for their ends.

#include "system/System.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <thread>
#include <tuple>

#include "Process.h"
#include "platform/system/FileDescriptor.h"
#include "system/MakeSystem.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace zyl::backbone::system;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::SizeIs;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;
using zyl::platform::FileDescriptor;

/// A user that owns nothing.
constexpr unsigned kNobody = 65534;

/// A plain socket of somebody who has found a domain's directory and follows no rules.
class Foreigner {
  public:
    /// 0, or the error number.
    int Connect(const std::string& path) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        return connect(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 ? 0
                                                                                                   : errno;
    }
    /// Sends one byte with these descriptors.
    void Send(const std::vector<int>& descriptors) const {
        const std::size_t size = descriptors.size() * sizeof(int);
        const cmsghdr header{CMSG_LEN(size), SOL_SOCKET, SCM_RIGHTS};
        std::string control(CMSG_SPACE(size), '\0');
        std::memcpy(control.data(), &header, sizeof header);
        std::memcpy(control.data() + CMSG_LEN(0), descriptors.data(), size);
        char byte = 'x';
        iovec part{&byte, 1};
        const msghdr message{nullptr, 0, &part, 1, control.data(), control.size(), 0};
        EXPECT_EQ(sendmsg(m_socket.Get(), &message, MSG_NOSIGNAL), 1);
    }

  private:
    FileDescriptor m_socket{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

FileDescriptor MemoryFile(off_t size, int seals) {
    FileDescriptor file(memfd_create("stranger's", MFD_ALLOW_SEALING));
    EXPECT_EQ(ftruncate(file.Get(), size) | fcntl(file.Get(), F_ADD_SEALS, seals), 0);
    return file;
}

int FirstFreeDescriptor() {
    return FileDescriptor(dup(0)).Get();
}

/// While the object lives, this process can open no further descriptors, not even in the place of one that it has
/// where `limit` is 0.
class NoDescriptors {
  public:
    explicit NoDescriptors(std::optional<rlim_t> limit = {}) {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit none{limit.value_or(static_cast<rlim_t>(FirstFreeDescriptor())), m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }

  private:
    rlimit m_before{};
};

class SystemTest : public ::testing::Test {
  protected:
    std::unique_ptr<Names> Join(System& system) const { return system.Join(m_base.Path().string(), "job"); }
    std::string Domain() const { return m_base / "d.job"; }
    std::string Socket() const {
        const Identity& me = m_here->Me().identity;
        return fmt::format("{}/s.{:016x}{:016x}", Domain(), me.high, me.low);
    }
    std::vector<std::string> Files() const {
        std::vector<std::string> names;
        for (const fs::directory_entry& entry : fs::directory_iterator(Domain())) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }
    /// Plays `role` in a process of its own, which has joined and has nothing of its parent's; then that is killed.
    void InAKilledProcess(const std::function<void(System&, Names&)>& role) const {
        Process process([&] {
            LeaveToParent();
            const std::unique_ptr<System> system = MakeSystem();
            const std::unique_ptr<Names> names = Join(*system);
            role(*system, *names);
            return HasFailure() ? 1 : raise(SIGKILL);
        });
        EXPECT_EQ(process.Wait(), "signal 9") << process.Output();
    }

    TemporaryDirectory m_base;
    std::unique_ptr<System> m_here = MakeSystem();
    std::unique_ptr<System> m_there = MakeSystem();
};

/// The two of them, joined, with a channel: the near one is "target".
class ChannelTest : public SystemTest {
  protected:
    std::string Received(Channel& channel, std::size_t most = 100'000) {
        const Moved moved = channel.Receive(std::span(m_buffer).first(most));
        return moved.progress == Progress::kSome ? m_buffer.substr(0, moved.bytes) : "";
    }
    static std::unique_ptr<Memory> MemoryWith(const std::string& text, System& system) {
        std::unique_ptr<Memory> memory = system.MakeMemory(text.size());
        EXPECT_EQ(TextIn(*memory), std::string(text.size(), '\0'));
        text.copy(memory->Bytes().data(), text.size());
        return memory;
    }
    static std::string TextIn(const Memory& memory) { return {memory.Bytes().data(), memory.Bytes().size()}; }

    std::unique_ptr<Names> m_hereNames = Join(*m_here);
    std::unique_ptr<Names> m_thereNames = Join(*m_there);
    const Entry m_target = m_hereNames->Claim("target", true).entry;
    std::unique_ptr<Channel> m_far = m_thereNames->Connect(m_target).channel;
    std::unique_ptr<Channel> m_near = m_hereNames->Accept().channel;
    std::string m_buffer = std::string(100'000, '\0');
};

TEST_F(SystemTest, EveryNameIsHeldByOneAndSeenByAllUntilItsHolderLeaves) {
    const std::string kLong(4096, 'x');
    const std::string kNames[] = {"solver", "Solver", "a/b", "..", "", "%41", "a\n\xff", kLong, kLong + "y"};
    std::unique_ptr<Names> here = Join(*m_here);
    const std::unique_ptr<Names> there = Join(*m_there);
    for (const std::string& name : kNames) {
        SCOPED_TRACE(name.substr(0, 70));
        EXPECT_FALSE(there->Find(name).has_value());
        const bool announced = name.size() % 2 == 0;
        ASSERT_TRUE(here->Claim(name, announced).taken);
        EXPECT_FALSE(here->Claim(name, true).taken) << "nor twice by its holder";
        const Names::Claimed second = there->Claim(name, true);
        EXPECT_FALSE(second.taken);
        const Self& me = m_here->Me();
        EXPECT_EQ(std::tie(second.entry.name, second.entry.identity, second.entry.pid, second.entry.host,
                           second.entry.announced, second.entry.watches),
                  std::tuple(name, me.identity, getpid(), me.host, announced, false));
        EXPECT_EQ(there->IsHeld(second.entry), Names::Holding::kYes);
        EXPECT_EQ(here->IsHeld(second.entry), Names::Holding::kYes);
        here->MarkWatcher(name);
        EXPECT_TRUE(there->Find(name).value().watches);
    }
    const std::vector<Entry> all = there->List();
    EXPECT_THAT(all, SizeIs(std::size(kNames)));
    EXPECT_THAT(Files(), IsSupersetOf({"l.solver", "l.%53olver"})) << "also where cases are not told apart";
    here.reset();
    EXPECT_THAT(there->List(), IsEmpty());
    for (const Entry& entry : all) {
        EXPECT_EQ(there->IsHeld(entry), Names::Holding::kNo);
        EXPECT_EQ(there->Connect(entry).reached, Names::Reached::kNobody);
        EXPECT_GT(there->Claim(entry.name, true).entry.order, entry.order);
        EXPECT_EQ(there->IsHeld(entry), Names::Holding::kNo) << "another one's now";
    }
}

TEST_F(SystemTest, WhatIsLeftOfAKilledProcessHoldsNobodyUp) {
    InAKilledProcess([](System& /*system*/, Names& names) {
        names.Claim("phoenix", true);
        names.Claim("tool with " + std::string(100, '7'), false);
    });
    const std::string cut = Domain() + "/l.phoeni";  // as killed while it wrote
    fs::copy_file(Domain() + "/l.phoenix", cut);
    fs::resize_file(cut, fs::file_size(cut) - 1);
    EXPECT_THAT(Files(), SizeIs(4)) << "three locks, a socket";
    std::ofstream(Domain() + "/l.%4") << "stray";
    fs::create_directory(Domain() + "/l.directory");
    ASSERT_EQ(mkfifo((Domain() + "/l.fifo").c_str(), 0600), 0);

    FileDescriptor turn(open(Domain().c_str(), O_RDONLY | O_DIRECTORY));
    ASSERT_EQ(flock(turn.Get(), LOCK_EX), 0) << "so nothing is removed";
    InAKilledProcess([](System& /*system*/, Names& names) {
        const std::optional<Entry> old = names.Find("phoenix");
        ASSERT_TRUE(old.has_value());
        EXPECT_THAT(names.List(), SizeIs(2));
        EXPECT_EQ(names.IsHeld(*old), Names::Holding::kNo);
        EXPECT_EQ(names.Connect(*old).reached, Names::Reached::kNobody);
        const Names::Claimed next = names.Claim("phoenix", true);
        EXPECT_TRUE(next.taken);
        EXPECT_GT(next.entry.order, old->order);
        EXPECT_EQ(names.IsHeld(*old), Names::Holding::kNo);
        EXPECT_EQ(names.IsHeld(next.entry), Names::Holding::kYes);
    });
    turn.Close();
    EXPECT_THAT(Join(*m_here)->List(), IsEmpty());
    EXPECT_THAT(Files(), UnorderedElementsAre("l.%4", "l.directory"));
}

TEST_F(SystemTest, NameIsSafeWithItsNewHolderWhileOthersRemoveWhatTheLastOneLeft) {
    std::vector<std::thread> crowd;
    for (const char* name : {"one", "two", "three", "four"}) {
        crowd.emplace_back([&, name] {
            for (int round = 0; round < 50; ++round) {
                const std::unique_ptr<System> system = MakeSystem();
                const std::unique_ptr<Names> names = Join(*system);
                std::ofstream(Domain() + "/s." + std::string(32, name[0]));  // as if somebody had been killed
                while (!names->Claim(name, true).taken) {
                    // its file is just being removed
                }
                const std::unique_ptr<Names> another = Join(*system);
                EXPECT_EQ(names->IsHeld(another->Find(name).value()), Names::Holding::kYes);
                EXPECT_EQ(another->Connect(another->Find(name).value()).reached, Names::Reached::kConnected);
            }
        });
    }
    for (std::thread& one : crowd) {
        one.join();
    }
}

using SystemDeathTest = SystemTest;

TEST_F(SystemDeathTest, DirectoryThatIsNotThisUsersAloneIsRefused) {
    const struct {
        const char* complaint;
        const char* make;  ///< a shell's command, for the directory $0
    } kUnfit[] = {
        {"others may use it too (mode 0710)", "mkdir -m 710 $0"},
        {"it cannot be opened as a directory", "mkdir -m 700 $0.real; ln -s $0.real $0"},
        {"it cannot be opened as a directory", "touch $0"},
        {geteuid() == 0 ? "it belongs to the user with number 65534" : "others may use it too (mode 0701)",
         geteuid() == 0 ? "mkdir -m 701 $0; chown 65534:65534 $0" : "mkdir -m 701 $0"},
    };
    for (const auto& [complaint, make] : kUnfit) {
        for (const char* within : {"", "/d.job"}) {
            const TemporaryDirectory place;
            const std::string path = place / "base" + within;
            const std::string command =
                fmt::format("mkdir -m 700 -p $(dirname {0}); sh -c '{1}' {0}", path, make);
            EXPECT_EQ(std::system(command.c_str()), 0);
            EXPECT_DEATH(
                m_here->Join(place / "base", "job"),
                AllOf(HasSubstr("cannot use the domain directory '" + path + "': "), HasSubstr(complaint),
                      HasSubstr("set ZYL_BACKBONE_DIR to a directory of your own with mode 0700")));
        }
    }
    EXPECT_DEATH((NoDescriptors(), MakeSystem()), HasSubstr("cannot open a poller: Too many open files"));
    EXPECT_DEATH((NoDescriptors(), Join(*m_here)),
                 AllOf(HasSubstr("(Too many open files)"), Not(HasSubstr("set ZYL_"))));
}

TEST_F(SystemTest, StandsInTheRuntimeDirectoryUnlessSetOtherwiseAndIsClosedToOthers) {
    const std::string runtime = m_base / std::string(120, 'r');  // longer than the address of a socket
    fs::create_directory(runtime);
    ASSERT_EQ(setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1), 0);
    umask(0);
    std::unique_ptr<Names> names = m_here->Join("", "job");
    EXPECT_EQ(names->Connect(names->Claim("target", true).entry).reached, Names::Reached::kConnected);
    EXPECT_EQ(names->Place(), runtime + "/zyl-backbone/d.job");
    std::size_t count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(runtime)) {
        EXPECT_EQ(entry.symlink_status().permissions() & ~fs::perms::owner_all, fs::perms::none) << entry;
        ++count;
    }
    EXPECT_EQ(count, 4U) << "base, domain, lock and socket";
    names.reset();
    EXPECT_FALSE(fs::exists(runtime + "/zyl-backbone/d.job"));
}

/// However far the owner has opened the way, the next guard holds: base directory, domain directory, socket,
/// and at last the kernel's word on who it is.
TEST_F(SystemDeathTest, ProcessOfAnotherUserGetsNowhere) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can play another user";
    }
    const std::unique_ptr<Names> names = Join(*m_here);
    ASSERT_TRUE(names->Claim("target", true).taken);
    const auto becomeNobody = [] { EXPECT_EQ(setgid(kNobody) | setuid(kNobody), 0); };
    for (const std::string& opened : {std::string(), m_base.Path().string(), Domain(), Socket()}) {
        if (!opened.empty()) {
            fs::permissions(opened, fs::perms::all);
        }
        EXPECT_DEATH((becomeNobody(), Join(*m_here)), "cannot use the domain directory");
        EXPECT_EXIT((becomeNobody(), _exit(Foreigner().Connect(Socket()))),
                    ::testing::ExitedWithCode(opened == Socket() ? 0 : EACCES), "");
    }
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(names->Accept().welcome, Names::Welcome::kRefused);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "ZYLFeaBackbone: a link from the user with number 65534 is refused\n");
}

TEST_F(SystemTest, DirectoryThatWasDeletedIsLeftOrMadeAgain) {
    const std::unique_ptr<Names> holder = Join(*m_here);
    const std::unique_ptr<Names> idle = Join(*m_there);
    const Entry held = holder->Claim("target", true).entry;
    fs::remove_all(Domain());
    EXPECT_FALSE(holder->Find("target").has_value());
    EXPECT_THAT(holder->List(), IsEmpty());
    EXPECT_EQ(holder->Connect(held).reached, Names::Reached::kNobody);
    EXPECT_TRUE(idle->Claim("target", true).taken);
    EXPECT_EQ(Join(*m_here)->IsHeld(idle->Find("target").value()), Names::Holding::kYes);
}

TEST_F(ChannelTest, BytesAndMemoriesArriveInTheirOrderAlsoFromTheKilled) {
    const std::string large(std::size_t{3} << 20, 'L');
    InAKilledProcess([&](System& system, Names& names) {
        Channel* const far = names.Connect(names.Find("target").value()).channel.release();
        EXPECT_EQ(far->Send(std::string("ab")).bytes, 2U);
        for (const std::string& text : {std::string("first"), large}) {
            EXPECT_EQ(far->SendWithMemory(std::string("cd"), *MemoryWith(text, system)).bytes, 2U);
        }
        EXPECT_EQ(far->Send(std::string("ef")).bytes, 2U);
    });
    const std::unique_ptr<Channel> near = m_hereNames->Accept().channel;
    EXPECT_TRUE(near->HasEnded());
    EXPECT_EQ(Received(*near, 3), "abc") << "a call may go as far as the bytes that a memory came with";
    EXPECT_EQ(Received(*near), "dcd") << "and not behind them";
    for (const std::size_t waiting : {2U, 1U}) {
        EXPECT_EQ(near->Waiting(), waiting);
        const Channel::Arrival arrival = near->TakeMemory();
        ASSERT_NE(arrival.memory, nullptr) << arrival.problem;
        EXPECT_EQ(TextIn(*arrival.memory), waiting == 2 ? "first" : large);
    }
    EXPECT_EQ(Received(*near), "ef");
    EXPECT_EQ(near->Waiting(), 0U);
    EXPECT_EQ(near->Receive(m_buffer).progress, Progress::kEnded);
    EXPECT_EQ(near->Send(m_buffer).progress, Progress::kEnded);
}

TEST_F(SystemTest, WaitEndsWithItsDeadlineOrAWake) {
    const Clock::time_point deadline = m_here->Now() + 2300us;
    while (m_here->Now() < deadline) {
        m_here->Wait(deadline);
    }
    static System* s_woken = m_here.get();
    std::signal(SIGUSR1, [](int) { s_woken->Wake(); });
    raise(SIGUSR1);
    m_here->Wait({});
}

TEST_F(ChannelTest, ShortageOfDescriptorsLosesNothing) {
    m_far->SendWithMemory(std::string("1"), *MemoryWith("first", *m_there));
    m_far->SendWithMemory(std::string("2"), *MemoryWith("second", *m_there));
    const std::unique_ptr<Channel> queued = m_thereNames->Connect(m_target).channel;
    const std::unique_ptr<Channel> queuedToo = m_thereNames->Connect(m_target).channel;
    queuedToo->Send(std::string("from the queue"));
    std::unique_ptr<Channel> accepted;
    {
        const NoDescriptors shortage;
        for (const char* text : {"first", "second"}) {
            EXPECT_THAT(Received(*m_near), SizeIs(1));
            const Channel::Arrival arrival = m_near->TakeMemory();
            ASSERT_NE(arrival.memory, nullptr) << arrival.problem;
            EXPECT_EQ(TextIn(*arrival.memory), text);
        }
        EXPECT_THAT(m_hereNames->List(), SizeIs(1));
        EXPECT_EQ(m_thereNames->IsHeld(m_target), Names::Holding::kYes);
        accepted = m_hereNames->Accept().channel;
        EXPECT_NE(accepted, nullptr) << "with a spare descriptor";
        const Names::Acceptance refused = m_hereNames->Accept();
        EXPECT_EQ(refused.welcome, Names::Welcome::kShortage);
        EXPECT_EQ(refused.problem, "Too many open files");
        EXPECT_EQ(m_here->MakeMemory(1), nullptr) << "the last spare is for what comes";
        for (const char* text : {"3", "4"}) {
            const std::unique_ptr<Memory> memory = m_there->MakeMemory(1);
            ASSERT_NE(memory, nullptr) << "with the other system's spare, which it takes back";
            m_far->SendWithMemory(std::string(text), *memory);
            EXPECT_EQ(Received(*m_near), text);
            EXPECT_NE(m_near->TakeMemory().memory, nullptr);
        }
        const std::unique_ptr<Memory> last = m_there->MakeMemory(1);
        EXPECT_EQ(m_thereNames->Connect(m_target).reached, Names::Reached::kNotNow);
    }
    EXPECT_EQ(Received(*m_hereNames->Accept().channel), "from the queue");
    EXPECT_NE(m_here->MakeMemory(1), nullptr);

    m_far->SendWithMemory(std::string("5"), *MemoryWith("lost", *m_there));
    {
        const NoDescriptors notEvenInPlaceOfASpare(0);
        EXPECT_EQ(Received(*m_near), "5");
        EXPECT_EQ(m_near->TakeMemory().problem, "there was no descriptor for it");
        m_near->Receive(m_buffer);
        EXPECT_EQ(m_near->Receive(m_buffer).progress, Progress::kShortage) << "no spare is left";
    }
    EXPECT_EQ(m_near->Receive(m_buffer).progress, Progress::kNotNow);
}

TEST_F(ChannelTest, WhateverAStrangerSendsIsCountedAndClosed) {
    constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
    const struct {
        FileDescriptor file;
        std::size_t count;
        const char* problem;  ///< empty: it is good
    } kCases[] = {
        {MemoryFile(4096, kSeals), 1, ""},
        {MemoryFile(4096, kSeals), 2, "2 descriptors came at once"},
        {FileDescriptor(dup(0)), 1, "it is no shared memory"},
        {MemoryFile(4096, F_SEAL_GROW), 1, "it is no shared memory"},
        {MemoryFile(0, kSeals), 1, "it has 0 bytes; there must be some"},
        {MemoryFile((off_t{4} << 30) + 1, kSeals), 1, "it has 4294967297 bytes; "},
        {MemoryFile(4096, kSeals | F_SEAL_WRITE), 1, "it cannot be mapped: Oper"},
        {FileDescriptor(dup(0)), 253, "253 descriptors came at once"},
    };
    for (const auto& [file, count, problem] : kCases) {
        SCOPED_TRACE(problem);
        const Foreigner stranger;
        ASSERT_EQ(stranger.Connect(Socket()), 0);
        const std::unique_ptr<Channel> channel = m_hereNames->Accept().channel;
        const int before = FirstFreeDescriptor();
        stranger.Send(std::vector(count, file.Get()));
        EXPECT_EQ(Received(*channel), "x");
        EXPECT_EQ(FirstFreeDescriptor(), before);
        EXPECT_EQ(channel->Waiting(), count);
        const Channel::Arrival arrival = channel->TakeMemory();
        EXPECT_EQ(arrival.memory != nullptr, *problem == '\0');
        EXPECT_THAT(arrival.problem, StartsWith(problem));
    }
}

}  // namespace
