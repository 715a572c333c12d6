#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>

#include "ForeignPeer.h"
#include "Frames.h"
#include "ObservedTransport.h"
#include "World.h"
#include "local/Descriptors.h"

/// What the local transport does when a peer, the system or a stranger fails it. Participants are real
/// processes.

namespace {

using std::chrono::milliseconds;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using zyl::backbone::Clock;
using zyl::backbone::Settings;
using zyl::backbone::local::AnnounceFrame;
using zyl::backbone::local::FrameKind;
using zyl::backbone::local::Greeting;
using zyl::backbone::local::GreetingFrame;
using zyl::backbone::local::kProtocolVersion;
using zyl::backbone::local::LaneFrame;
using zyl::backbone::local::SendWithDescriptors;

/// More than any link holds.
const std::string& BigBody() {
    static const std::string body(std::size_t{64} << 20, 'B');
    return body;
}

long Lines(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
}

/// The processor time of this process so far.
std::chrono::microseconds ProcessorTime() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

/// What a wait of some tenths of a second may take: a thousandth of it is usual, all of it a loop that spins.
constexpr milliseconds kHardlyAny{60};

int OpenDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<int>(std::distance(begin(all), end(all)));
}

/// Without two spare descriptors UndefinedBehaviorSanitizer, which looks at memory through a pipe, takes
/// sound objects for broken ones.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kLeastSpare = 2;
#else
constexpr int kLeastSpare = 0;
#endif

/// While the object lives, this process can open `spare` further descriptors only.
class DescriptorShortage {
  public:
    explicit DescriptorShortage(int spare) {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const int lowestFree = dup(STDIN_FILENO);
        close(lowestFree);
        rlimit limit = m_before;
        limit.rlim_cur = static_cast<rlim_t>(lowestFree) + static_cast<rlim_t>(spare);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorShortage() { End(); }
    void End() { setrlimit(RLIMIT_NOFILE, &m_before); }

  private:
    rlimit m_before{};
};

/// Kills a process that is no child of this one, and returns when it is dead with everything closed.
void KillAndAwait(pid_t victim) {
    const auto process = static_cast<int>(syscall(SYS_pidfd_open, victim, 0));
    ASSERT_GE(process, 0);
    kill(victim, SIGKILL);
    pollfd ended{process, POLLIN, 0};
    EXPECT_EQ(poll(&ended, 1, 20000), 1);
    close(process);
}

class LocalTransport : public ::testing::Test {
  protected:
    explicit LocalTransport(std::unique_ptr<World> world = MakeLocalWorld()) : m_world(std::move(world)) {}

    std::unique_ptr<World> m_world;
    Settings& m_settings = m_world->settings;
};

using LocalTransportDeathTest = LocalTransport;

/// What depends on how a link carries its messages.
struct Kind {
    const char* name;
    std::unique_ptr<World> (*make)();
};

class LocalLink : public LocalTransport, public ::testing::WithParamInterface<Kind> {
  protected:
    LocalLink() : LocalTransport(GetParam().make()) {}
};

INSTANTIATE_TEST_SUITE_P(Lanes, LocalLink,
                         ::testing::Values(Kind{"memory", MakeLocalWorld}, Kind{"socket", MakeSocketWorld}),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST_F(LocalTransportDeathTest, NameOfALivingProcessIsRefusedWithItsPidAndHost) {
    Shared holder;
    Signal held;
    Signal tried;
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    m_world->Play({[&](Participant& me) {
                       me.Declare("solver");
                       holder.Set(getpid());
                       held.Give();
                       tried.Await();
                   },
                   [&](Participant& me) {
                       held.Await();
                       EXPECT_DEATH(
                           me.Declare("solver"),
                           HasSubstr("application 'solver' of domain 'job' is held by the living process " +
                                     std::to_string(holder.Get()) + " on " + host));
                       tried.Give();
                   }});
}

TEST_F(LocalTransport, TargetThatNeverComesIsNamedAfterTwoSecondsAndGivenUpAtTheDeadline) {
    m_settings.connectTimeout = milliseconds(3000);
    m_world->Play({[&](Participant& me) {
        ::testing::internal::CaptureStderr();
        const auto start = Clock::now();
        me.Send("nobody", "Question", "");
        EXPECT_GE(Clock::now() - start, milliseconds(3000));
        const std::string lines = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(Lines(lines), 2) << lines;
        EXPECT_THAT(
            lines, AllOf(StartsWith("ZYLFeaBackbone: still waiting for application 'nobody' in domain 'job', "
                                    "which has not started, to send it a message of type 'Question'\n"),
                         HasSubstr("is dropped: it did not come in time")));
    }});
}

TEST_P(LocalLink, MessageOfASenderKilledInItsMiddleIsNeverSeenAndTheLossReportedOnce) {
    for (const int waits : {1, 2, 6}) {
        Signal ready;
        m_world->Play({[&](Participant& me) {
                           me.Watch("target");
                           me.Receive("target");
                           ready.Give();
                           me.WaitUntil([&] { return !me.lost.empty(); });
                           me.Look();
                           EXPECT_THAT(me.lost, ElementsAre("sender"));
                           ASSERT_THAT(me.received, SizeIs(1));
                           EXPECT_EQ(me.received[0].type, "whole");
                       },
                       [&](Participant& /*me*/) {
                           ready.Await();
                           Participant sender(std::make_unique<ObservedTransport>(m_settings,
                                                                                  [&](int nth) {
                                                                                      if (nth == waits) {
                                                                                          raise(SIGKILL);
                                                                                      }
                                                                                  }),
                                              m_settings);
                           sender.Declare("sender");
                           sender.Send("target", "whole", "small");
                           sender.Send("target", "cut off", BigBody());
                           ADD_FAILURE() << "all of the message was accepted";
                       }});
    }
}

TEST_P(LocalLink, SenderGetsOnWhenTheReceiverThatBlocksItIsKilled) {
    Signal there;
    Signal blocked;
    m_world->Play({[&](Participant& me) {
                       me.Declare("target");
                       there.Give();
                       blocked.Await();
                       me.Crash();
                   },
                   [&](Participant& /*me*/) {
                       signal(SIGPIPE, SIG_DFL);
                       there.Await();
                       there.Await();
                       Participant sender(std::make_unique<ObservedTransport>(m_settings,
                                                                              [&](int nth) {
                                                                                  if (nth == 1) {
                                                                                      blocked.Give();
                                                                                  }
                                                                              }),
                                          m_settings);
                       ::testing::internal::CaptureStderr();
                       sender.Send("target", "Big", BigBody());
                       const std::string lines = ::testing::internal::GetCapturedStderr();
                       EXPECT_EQ(lines,
                                 "ZYLFeaBackbone: a message of type 'Big' for application 'target' in domain "
                                 "'job' is dropped: it was lost\n");
                       sender.Send("witness", "t", "got on");
                   },
                   [&](Participant& me) {
                       me.Watch("witness");
                       me.Receive("witness");
                       there.Give();
                       me.WaitUntil([&] { return me.received.size() == 1 && me.lost.size() == 1; });
                       EXPECT_THAT(me.lost, ElementsAre("target"));
                   }});
}

/// Leaves behind what a killed process may have open for a moment when its name is free already: its links.
void LeaveAllButTheName(const std::function<void()>& holdUntil) {
    if (fork() != 0) {
        return;
    }
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code none;
        if (read_symlink(entry.path(), none).filename().string().starts_with("l.")) {
            close(std::stoi(entry.path().filename()));
        }
    }
    holdUntil();
    _exit(0);
}

TEST_P(LocalLink, ApplicationThatHasComeBackIsSentToThoughItsLastLifeSeemsToLiveYet) {
    Signal there;
    Signal over;
    Signal seen;
    m_world->Play({[&](Participant& me) {
                       me.Watch("host");
                       me.Receive("host");
                       there.Give();
                       me.WaitUntil([&] { return me.received.size() == 1; });
                       me.Send("worker", "t", "for the first life");
                       me.WaitUntil([&] { return me.received.size() == 2; });
                       me.Send("worker", "t", "for the second life");
                       me.WaitUntil([&] { return me.lost.size() == 2; });
                       EXPECT_THAT(me.lost, ElementsAre("worker", "worker"));
                       seen.Give();
                   },
                   [&](Participant& me) {
                       there.Await();
                       me.Receive("worker");
                       me.Send("host", "t", "first life");
                       me.WaitUntil([&] { return !me.received.empty(); });
                       LeaveAllButTheName([&] { seen.Await(); });
                       over.Give();
                       me.Crash();
                   },
                   [&](Participant& me) {
                       over.Await();
                       me.Receive("worker");
                       me.Send("host", "t", "second life");
                       me.WaitUntil([&] { return !me.received.empty(); });
                       EXPECT_EQ(me.received[0].body, "for the second life");
                   }});
}

TEST_P(LocalLink, LivesUnderOneNameAreHeardOneAfterTheOther) {
    Signal there;
    Signal over;
    Signal spoken;
    std::vector<std::string> heard;
    m_world->Play({[&](Participant& me) {
                       me.Watch("host");
                       me.Receive("host");
                       there.Give();
                       spoken.Await();
                       me.onMessage = [&](const Received& one) {
                           heard.insert(heard.end(), me.lost.size(), "loss");
                           heard.push_back(one.body);
                       };
                       me.WaitUntil([&] { return me.received.size() == 6; });
                       EXPECT_THAT(heard, ElementsAre("1", "2", "3", "loss", "4", "loss", "5", "loss", "6"));
                   },
                   [&](Participant& me) {
                       there.Await();
                       me.Receive("worker");
                       me.Send("host", "t", "1");
                       me.Send("host", "t", "2");
                       me.Send("host", "t", "3");
                       over.Give();
                       me.Crash();
                   },
                   [&](Participant& me) {
                       over.Await();
                       me.Receive("worker");
                       me.Send("host", "t", "4");
                       me.Send("host", "t", "5");
                       me.Send("host", "t", "6");
                       spoken.Give();
                   }});
}

TEST_P(LocalLink, ReceiverThatDiesWhileItsMessageIsWrittenRaisesNoSigpipe) {
    static pid_t s_victim;
    Shared receiver;
    Signal there;
    m_world->Play({[&](Participant& me) {
                       me.Declare("target");
                       receiver.Set(getpid());
                       there.Give();
                       for (;;) {
                           pause();
                       }
                   },
                   [&](Participant& me) {
                       signal(SIGPIPE, SIG_DFL);
                       there.Await();
                       s_victim = static_cast<pid_t>(receiver.Get());
                       ::testing::internal::CaptureStderr();
                       me.board.SendRequest(
                           me.domain, "target", [](void*, int) { KillAndAwait(s_victim); }, [] { return 0; },
                           [] { return "First"; });
                       me.Send("target", "Second", "");
                       EXPECT_THAT(
                           ::testing::internal::GetCapturedStderr(),
                           HasSubstr("a message of type 'Second' for application 'target' in domain 'job' is "
                                     "dropped: it is gone\n"));
                   }});
}

struct Garbage {
    std::string bytes;
    const char* complaint;
};

std::string WrongVersion() {
    Greeting greeting;
    greeting.version = kProtocolVersion + 1;
    return GreetingFrame(greeting);
}

TEST_F(LocalTransport, GarbageFromAStrangerClosesItsLinkWithOneLineAndHarmsNothingElse) {
    const std::string greeting = GreetingFrame({});
    const std::string endless = Header(static_cast<int>(FrameKind::kMessage), 1, 0x80000000U);
    const Garbage kGarbage[] = {
        {"GET / HTTP/1.1\r\n\r\n", "the frame's magic number is 542393671"},
        {Header(99, 1, 0), "the frame's kind is 99"},
        {greeting + Header(3, 0, 0), "the frame's type has no terminator"},
        {greeting + endless, "the frame's body has 2147483648 bytes of at most 2147483647"},
        {Header(1, 1, 16385), "the frame's body has 16385 bytes of at most 16384"},
        {WrongVersion(), "the peer speaks version "},
        {Header(1, 1, 4) + std::string(5, '\0'), "the peer speaks version 0, this process version "},
        {MessageFrame("t", "rude"), "the first frame is no greeting"},
        {greeting + greeting, "a second greeting"},
        {greeting + LaneFrame(4096), "a lane with a ring of 4096 bytes and 0 descriptors cannot be opened"},
        {greeting + MessageFrame("t", "") + std::string(1'000'000, 'x'), "the frame's magic number is "},
        // Cut off in the middle: nobody can tell it from a sender that was killed, which is not worth a line.
        {greeting.substr(0, 5), nullptr},
        {greeting.substr(0, greeting.size() - 1), nullptr},
        {greeting + MessageFrame("t", "cut off").substr(0, 20), nullptr},
        {"", nullptr},
    };
    Signal ready;
    Signal linked;
    Signal done;
    Shared intruder;
    m_world->Play({[&](Participant& me) {
                       me.Watch("target");
                       me.Receive("target");
                       ::testing::internal::CaptureStderr();
                       ready.Give();
                       me.WaitUntil([&] { return me.received.size() == 3; });
                       std::string lines = ::testing::internal::GetCapturedStderr();
                       const std::string start = "ZYLFeaBackbone: the link from process " +
                                                 std::to_string(intruder.Get()) +
                                                 " to application 'target' is closed: ";
                       for (const Garbage& garbage : kGarbage) {
                           if (garbage.complaint != nullptr) {
                               EXPECT_THAT(lines, StartsWith(start + garbage.complaint));
                               lines.erase(0, lines.find('\n') + 1);
                           }
                       }
                       EXPECT_EQ(lines, "");
                       EXPECT_EQ(me.received[2].body, "after it");
                       EXPECT_THAT(me.lost, IsEmpty());
                   },
                   [&](Participant& me) {
                       ready.Await();
                       me.Send("target", "t", "before the garbage");
                       linked.Give();
                       done.Await();
                       me.Send("target", "t", "after it");
                   },
                   [&](Participant& /*me*/) {
                       linked.Await();
                       intruder.Set(getpid());
                       for (const Garbage& garbage : kGarbage) {
                           const ForeignPeer stranger;
                           EXPECT_EQ(stranger.Connect(m_settings.directory + "/d.job/a.target"), 0);
                           stranger.Send(garbage.bytes);
                           if (garbage.complaint == nullptr) {
                               stranger.EndSending();
                           }
                           EXPECT_TRUE(stranger.AwaitEnd()) << garbage.bytes.substr(0, 40);
                       }
                       done.Give();
                   }});
}

TEST_P(LocalLink, GarbageFromWhoeverListensUnderANameHarmsNoSender) {
    m_settings.connectTimeout = milliseconds(50);
    Signal listening;
    Signal received;
    Signal done;
    m_world->Play({[&](Participant& /*me*/) {
                       const ForeignPeer listener;
                       ASSERT_TRUE(listener.Listen(m_settings.directory + "/d.job/a.fake"));
                       listening.Give();
                       const ForeignPeer link = listener.Accept();
                       link.Send(std::string(100000, 'x'));
                       received.Give();
                       done.Await();
                   },
                   [&](Participant& me) {
                       me.Receive("sender");
                       listening.Await();
                       me.Send("fake", "t", "one");
                       received.Await();
                       me.Send("fake", "t", "two");
                       const auto before = ProcessorTime();
                       int never = 1;
                       me.board.WaitingLoop(me.domain, 300, &never);
                       EXPECT_LT(ProcessorTime() - before, kHardlyAny);
                       me.Send("sender", "t", "to itself");
                       me.Look();
                       EXPECT_THAT(me.received, SizeIs(1));
                       done.Give();
                   }});
}

/// With none to spare nobody is let in; with a few a link may come in, but not all that comes with it.
TEST_P(LocalLink, ReceiverOutOfDescriptorsSaysSoOnceAndLosesNothing) {
    for (int spare = kLeastSpare; spare <= 3; ++spare) {
        Signal there;
        Signal scarce;
        Signal sent;
        Signal done;
        m_world->Play(
            {[&](Participant& me) {
                 me.Receive("target");
                 there.Give();
                 me.WaitUntil([&] { return me.received.size() == 1; });
                 ::testing::internal::CaptureStderr();
                 {
                     const DescriptorShortage shortage(spare);
                     scarce.Give();
                     scarce.Give();
                     sent.Await();
                     sent.Await();
                     const auto before = ProcessorTime();
                     int never = 1;
                     me.board.WaitingLoop(me.domain, 300, &never);
                     EXPECT_LT(ProcessorTime() - before, kHardlyAny);
                 }
                 ASSERT_GE(me.received.size(), 2U) << "a link that is open already goes on";
                 EXPECT_EQ(me.received[1].body, "early again");
                 me.WaitUntil([&] { return me.received.size() == 3; });
                 EXPECT_EQ(me.received[2].body, "late");
                 const std::string lines = ::testing::internal::GetCapturedStderr();
                 EXPECT_LE(Lines(lines), 1) << lines;
                 if (spare == 0) {
                     EXPECT_EQ(lines,
                               "ZYLFeaBackbone: cannot accept a link to application 'target': Too many open "
                               "files; will try again\n");
                 }
                 done.Give();
             },
             [&](Participant& me) {
                 there.Await();
                 me.Send("target", "t", "early");
                 scarce.Await();
                 me.Send("target", "t", "early again");
                 sent.Give();
                 done.Await();
             },
             [&](Participant& me) {
                 scarce.Await();
                 me.Send("target", "t", "late");
                 sent.Give();
             }});
    }
}

TEST_P(LocalLink, ReceiverShortOfDescriptorsHearsAllThatSentAndEnded) {
    constexpr std::size_t kSenders = 12;
    Signal there;
    Signal sent;
    std::vector<Role> roles = {[&](Participant& me) {
        me.Receive("target");
        const DescriptorShortage shortage(8);
        for (std::size_t sender = 0; sender < kSenders; ++sender) {
            there.Give();
        }
        for (std::size_t sender = 0; sender < kSenders; ++sender) {
            sent.Await();
        }
        me.WaitUntil([&] { return me.received.size() == kSenders; });
    }};
    for (std::size_t sender = 0; sender < kSenders; ++sender) {
        roles.push_back([&](Participant& me) {
            there.Await();
            me.Send("target", "t", "a word");
            sent.Give();
        });
    }
    m_world->Play(roles);
}

TEST_F(LocalTransport, StrangerCannotFillAProcessWithDescriptors) {
    Signal there;
    Signal sent;
    Signal counted;
    m_world->Play({[&](Participant& me) {
                       me.Receive("target");
                       there.Give();
                       sent.Await();
                       const int before = OpenDescriptors();
                       me.Look();
                       EXPECT_LE(OpenDescriptors(), before + 10);
                       counted.Give();
                   },
                   [&](Participant& /*me*/) {
                       there.Await();
                       const ForeignPeer stranger;
                       EXPECT_EQ(stranger.Connect(m_settings.directory + "/d.job/a.target"), 0);
                       stranger.Send(GreetingFrame({}));
                       const std::array<int, 3> descriptors{STDIN_FILENO, STDIN_FILENO, STDIN_FILENO};
                       for (int number = 0; number < 50; ++number) {
                           SendWithDescriptors(stranger.Socket(), AnnounceFrame("x"), descriptors);
                       }
                       sent.Give();
                       counted.Await();
                   }});
}

TEST_P(LocalLink, SenderOutOfDescriptorsSaysSoOnceAndSendsWhenItHasSome) {
    if (kLeastSpare > 0) {
        GTEST_SKIP() << "the sanitizers need descriptors of their own";
    }
    Signal there;
    m_world->Play({[&](Participant& me) {
                       me.Receive("target");
                       there.Give();
                       me.WaitUntil([&] { return me.received.size() == 1; });
                   },
                   [&](Participant& /*me*/) {
                       there.Await();
                       DescriptorShortage* shortage = nullptr;
                       Participant sender(std::make_unique<ObservedTransport>(m_settings,
                                                                              [&](int nth) {
                                                                                  if (nth == 20) {
                                                                                      shortage->End();
                                                                                  }
                                                                              }),
                                          m_settings);
                       ::testing::internal::CaptureStderr();
                       DescriptorShortage limited(0);
                       shortage = &limited;
                       const auto before = ProcessorTime();
                       sender.Send("target", "t", "");
                       EXPECT_LT(ProcessorTime() - before, kHardlyAny);
                       const std::string lines = ::testing::internal::GetCapturedStderr();
                       const std::string line = "cannot open a socket: Too many open files; will try again\n";
                       EXPECT_THAT(lines, StartsWith("ZYLFeaBackbone: " + line));
                       EXPECT_EQ(lines.find(line), lines.rfind(line)) << lines;
                   }});
}

TEST_P(LocalLink, StoppedPeerIsNoLostPeerAndGoesOnWhereItStood) {
    Shared sleeper;
    Signal there;
    m_world->Play({[&](Participant& me) {
                       me.discard = true;
                       std::size_t bytes = 0;
                       me.onMessage = [&](const Received& message) { bytes += message.body.size(); };
                       me.Receive("sleeper");
                       sleeper.Set(getpid());
                       there.Give();
                       me.WaitUntil([&] { return bytes == BigBody().size(); });
                   },
                   [&](Participant& me) {
                       there.Await();
                       me.Watch("watcher");
                       const auto pid = static_cast<pid_t>(sleeper.Get());
                       kill(pid, SIGSTOP);
                       int never = 1;
                       me.board.WaitingLoop(me.domain, 1500, &never);
                       EXPECT_THAT(me.lost, IsEmpty());
                       {
                           const auto wake = [&](int nth) {
                               if (nth == 1) {
                                   kill(pid, SIGCONT);
                               }
                           };
                           Participant sender(std::make_unique<ObservedTransport>(m_settings, wake),
                                              m_settings);
                           sender.Send("sleeper", "t", BigBody());
                       }
                       me.WaitUntil([&] { return !me.lost.empty(); });
                       EXPECT_THAT(me.lost, ElementsAre("sleeper")) << "when it has ended";
                   }});
}

TEST_P(LocalLink, TwoThatSend256MiBToEachOtherBeforeEitherWaitsGetItAll) {
    constexpr int kCount = 64;
    constexpr std::size_t kSize = 4 << 20;
    const auto body = [&](const std::string& sender, int number) {
        std::string bytes = sender + std::to_string(number);
        bytes.resize(kSize, static_cast<char>('a' + number % 26));
        return bytes;
    };
    const auto role = [&](const std::string& own, const std::string& other) {
        return [&, own, other](Participant& me) {
            int count = 0;
            me.discard = true;
            me.onMessage = [&](const Received& message) {
                EXPECT_TRUE(message.body == body(other, count))
                    << "message " << count << " is not what was sent";
                ++count;
            };
            me.Receive(own);
            for (int number = 0; number < kCount; ++number) {
                me.Send(other, "t", body(own, number));
            }
            EXPECT_EQ(count, 0);
            me.WaitUntil([&] { return count == kCount; });
        };
    };
    m_world->Play({role("left", "right"), role("right", "left")});
}

TEST_P(LocalLink, IdleWaiterTakesNoProcessorTime) {
    Signal linked;
    Signal idle;
    m_world->Play({[&](Participant& me) {
                       me.Watch("waiter");
                       me.Receive("waiter");
                       me.WaitUntil([&] { return me.received.size() == 1; });
                       me.Send("peer", "t", "");
                       const auto before = ProcessorTime();
                       int never = 1;
                       me.board.WaitingLoop(me.domain, 300, &never);
                       EXPECT_LT(ProcessorTime() - before, kHardlyAny);
                       idle.Give();
                   },
                   [&](Participant& me) {
                       me.Receive("peer");
                       me.Send("waiter", "t", "");
                       me.WaitUntil([&] { return me.received.size() == 1; });
                       idle.Await();
                   }});
}

/// The plain functions, which have one backbone a process.
class Fork : public LocalTransport {
  protected:
    /// Makes this process the application `name`; s_received counts its messages.
    void Become(const char* name) {
        setenv("ZYL_BACKBONE_DIR", m_settings.directory.c_str(), 1);
        RegisterCommunicator("job", &s_communicator);
        AssociateHandler(s_communicator, name, [](const char*, const void*, int) { ++s_received; });
    }
    static int s_communicator;
    static int s_received;
};

int Fork::s_communicator = 0;
int Fork::s_received = 0;

using ForkDeathTest = Fork;

TEST_F(ForkDeathTest, ChildMayCallNothing) {
    void (*const kCalls[])() = {
        [] { RegisterCommunicator("other", &s_communicator); },
        [] { DeclareApplicationId(s_communicator, "child", true); },
        [] { AssociateHandler(s_communicator, "parent", nullptr); },
        [] { AssociateDisconnectHandler(s_communicator, "parent", nullptr); },
        [] { SendRequest(s_communicator, "parent", nullptr, nullptr, nullptr); },
        [] { WaitingLoop(s_communicator, 0, &s_received); },
        [] { BBSysLoopWait(&s_received, 0); },
    };
    m_world->Play({[&](Participant& /*me*/) {
        Become("parent");
        for (void (*const call)() : kCalls) {
            EXPECT_DEATH(call(), HasSubstr("this process was forked from one that uses the backbone"));
        }
    }});
}

TEST_F(Fork, ChildWithdrawsNothingAndHidesNotTheParentsEnd) {
    Signal watching;
    Signal forked;
    Signal seen;
    m_world->Play({[&](Participant& me) {
                       me.Watch("watcher");
                       watching.Give();
                       forked.Await();
                       me.Send("parent", "t", "after its first child has ended");
                       me.WaitUntil([&] { return !me.lost.empty(); });
                       EXPECT_THAT(me.lost, ElementsAre("parent"));
                       seen.Give();
                   },
                   [&](Participant& /*me*/) {
                       watching.Await();
                       Become("parent");
                       const pid_t first = fork();
                       if (first == 0) {
                           exit(0);
                       }
                       int status = -1;
                       waitpid(first, &status, 0);
                       EXPECT_EQ(status, 0);
                       if (fork() == 0) {
                           seen.Await();
                           _exit(0);
                       }
                       forked.Give();
                       int condition = -1;
                       while (s_received == 0) {
                           BBSysLoopWait(&condition, 10);
                       }
                       raise(SIGKILL);
                   }});
}

}  // namespace
