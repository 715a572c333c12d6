#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "ForeignPeer.h"
#include "Frames.h"
#include "LocalTransport.h"
#include "ObservedTransport.h"

/// What the local transport does when a peer, the system or a stranger fails it. Participants are real
/// processes.

namespace {

using std::chrono::milliseconds;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using zyl::backbone::Clock;
using zyl::backbone::local::GreetingFrame;

/// Kills a process that is no child of this one, and returns when it is dead with everything closed.
void KillAndAwait(pid_t victim) {
    const auto process = static_cast<int>(syscall(SYS_pidfd_open, victim, 0));
    ASSERT_GE(process, 0);
    kill(victim, SIGKILL);
    pollfd ended{process, POLLIN, 0};
    EXPECT_EQ(poll(&ended, 1, 20000), 1);
    close(process);
}

using LocalTransportDeathTest = LocalTransport;
using LocalLinkDeathTest = LocalLink;

INSTANTIATE_TEST_SUITE_P(Lanes, LocalLink, AllLanes(), LaneName);
INSTANTIATE_TEST_SUITE_P(Lanes, LocalLinkDeathTest, AllLanes(), LaneName);

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
                                    "which is not there, to send it a message of type 'Question'; waits 1 s "
                                    "more; it looks in '" +
                                    m_settings.directory +
                                    "/d.job'; most often such an application was not started, or runs "
                                    "as another user or with another ZYL_BACKBONE_DIR or XDG_RUNTIME_DIR\n"),
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

TEST_P(LocalLink, AnswerToALifeThatIsOverDoesNotGoToTheNextOne) {
    for (const bool watches : {false, true}) {
        Signal there;
        Signal asked;
        Signal over;
        Signal back;
        m_world->Play({[&](Participant& me) {
                           me.onMessage = [&](const Received& message) {
                               if (message.body == "question") {
                                   asked.Give();
                                   back.Await();
                               }
                               me.Send("peer", "t", "answer to " + message.body);
                           };
                           me.Receive("host");
                           if (watches) {
                               me.Watch("host");
                           }
                           there.Give();
                           me.WaitUntil([&] { return me.received.size() == 2; });
                           EXPECT_EQ(me.lost.size(), watches ? 1U : 0U);
                       },
                       [&](Participant& me) {
                           there.Await();
                           me.Receive("peer");
                           me.Send("host", "t", "question");
                           asked.Await();
                           over.Give();
                           me.Crash();
                       },
                       [&](Participant& me) {
                           over.Await();
                           me.Receive("peer");
                           me.Send("host", "t", "greeting");
                           back.Give();
                           me.WaitUntil([&] { return !me.received.empty(); });
                           EXPECT_EQ(me.received[0].body, "answer to greeting");
                       }});
    }
}

TEST_P(LocalLink, LivesUnderOneNameAreHeardOneAfterTheOther) {
    constexpr std::size_t kLives = 40;  // each costs as much as the one before
    Signal there;
    Signal spoken;
    std::vector<Role> roles = {[&](Participant& me) {
        me.Watch("host");
        me.Receive("host");
        there.Give();
        spoken.Await();
        std::vector<std::size_t> lossesBefore;
        me.onMessage = [&](const Received& /*one*/) { lossesBefore.push_back(me.lost.size()); };
        me.WaitUntil([&] { return me.received.size() == 3 * kLives; });
        for (std::size_t index = 0; index < 3 * kLives; ++index) {
            EXPECT_EQ(me.received[index].body, std::to_string(index));
            EXPECT_EQ(lossesBefore[index], index / 3);
        }
    }};
    std::vector<Signal> over(kLives);
    for (std::size_t life = 0; life < kLives; ++life) {
        roles.push_back([&, life](Participant& me) {
            (life == 0 ? there : over[life - 1]).Await();
            me.Receive("worker");
            for (std::size_t index = 3 * life; index < 3 * life + 3; ++index) {
                me.Send("host", "t", std::to_string(index));
            }
            (life + 1 == kLives ? spoken : over[life]).Give();
            if (life + 1 < kLives) {
                me.Crash();
            }
        });
    }
    m_world->Play(roles);
}

TEST_F(LocalTransport, MessagesOfAPeerThatHasEndedCostNoMoreThanThoseOfALivingOne) {
    constexpr int kCount = 10'000;
    Signal ready;
    Signal sent;
    m_world->Play({[&](Participant& me) {
                       me.Receive("target");
                       me.Watch("target");
                       me.discard = true;
                       int count = 0;
                       me.onMessage = [&](const Received& /*message*/) { ++count; };
                       const auto timeUntil = [&](const std::function<bool()>& condition) {
                           ready.Give();
                           sent.Await();
                           const auto before = ProcessorTime();
                           me.WaitUntil(condition);
                           return ProcessorTime() - before;
                       };
                       const auto living = timeUntil([&] { return count == kCount; });
                       EXPECT_LT(timeUntil([&] { return !me.lost.empty(); }), 4 * living + milliseconds(4));
                       EXPECT_EQ(count, 2 * kCount);
                   },
                   [&](Participant& me) {
                       ready.Await();
                       me.Declare("sender");
                       for (int number = 0; number < 2 * kCount; ++number) {
                           if (number == kCount) {
                               sent.Give();
                               ready.Await();
                           }
                           me.Send("target", "t", "small");
                       }
                       sent.Give();
                       me.Crash();
                   }});
}

TEST_P(LocalLinkDeathTest, MessageThatIsLongerThanAnnouncedIsCaughtAtTheSend) {
    static int s_size;
    m_world->Play({[&](Participant& me) {
        me.Receive("self");
        Participant other(zyl::backbone::MakeLocalTransport(m_settings), m_settings);
        other.Receive("other");
        for (const char* target : {"self", "other"}) {
            for (const int size : {0, 6, 100, 1'000'000}) {
                s_size = size;
                EXPECT_DEATH(me.board.SendRequest(
                                 me.domain, target,
                                 [](void* room, int announced) {
                                     std::memset(room, 'x', static_cast<std::size_t>(announced) + 1);
                                 },
                                 [] { return s_size; }, [] { return "Wrong"; }),
                             HasSubstr("a message of type 'Wrong' for application '" + std::string(target) +
                                       "' wrote more than the " + std::to_string(size) + " bytes"));
            }
        }
    }});
}

TEST_P(LocalLink, FirstSendToAPeerThatCameAndWentFailsAtOnceAndTheLossIsReportedOnce) {
    for (const bool afterTheReport : {false, true}) {
        Shared peer;
        Signal watching;
        Signal there;
        m_world->Play({[&](Participant& me) {
                           me.Watch("sender");
                           watching.Give();
                           there.Await();
                           KillAndAwait(static_cast<pid_t>(peer.Get()));
                           if (afterTheReport) {
                               me.WaitUntil([&] { return !me.lost.empty(); });
                           }
                           ::testing::internal::CaptureStderr();
                           me.Send("peer", "t", "to nobody");
                           EXPECT_EQ(::testing::internal::GetCapturedStderr(),
                                     "ZYLFeaBackbone: a message of type 't' for application 'peer' in domain "
                                     "'job' is dropped: it is gone\n");
                           me.Look();
                           EXPECT_THAT(me.lost, ElementsAre("peer"));
                       },
                       [&](Participant& me) {
                           watching.Await();
                           me.Declare("peer");
                           peer.Set(getpid());
                           there.Give();
                           for (;;) {
                               pause();
                           }
                       }});
    }
}

TEST_P(LocalLink, SenderThatOnlySendsLosesNothingSilentlyAndReachesTheNextLife) {
    Shared peer;
    Signal there;
    Signal over;
    Signal again;
    m_world->Play({[&](Participant& me) {
                       there.Await();
                       me.Send("peer", "t", "to the first life");
                       over.Await();
                       KillAndAwait(static_cast<pid_t>(peer.Get()));
                       ::testing::internal::CaptureStderr();
                       me.Send("peer", "t", "to nobody");
                       EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                                   HasSubstr("is dropped: it is gone"));
                       again.Give();
                       there.Await();
                       me.Send("peer", "t", "to the second life");
                   },
                   [&](Participant& me) {
                       peer.Set(getpid());
                       me.Receive("peer");
                       there.Give();
                       me.WaitUntil([&] { return !me.received.empty(); });
                       over.Give();
                   },
                   [&](Participant& me) {
                       again.Await();
                       me.Receive("peer");
                       there.Give();
                       me.WaitUntil([&] { return !me.received.empty(); });
                       EXPECT_EQ(me.received[0].body, "to the second life");
                   }});
}

TEST_P(LocalLink, ReceiverThatDiesWhileItsMessageIsWrittenRaisesNoSigpipe) {
    static pid_t s_victim;
    Shared receiver;
    Signal there;
    m_world->Play(
        {[&](Participant& me) {
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
                 ContainsRegex("a message of type '(First|Second)' for application 'target' in domain "
                               "'job' is dropped: it (was lost|is gone)\n"));
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

TEST_F(LocalTransport, OneLookHearsAllOfManyLinksInOneDomainAndInTwo) {
    m_world->Play({[&](Participant& me) {
        me.Receive("target");
        std::vector<ForeignPeer> links(200);
        const auto hearFromAll = [&](const std::function<void()>& look, const std::string& first) {
            me.received.clear();
            for (const ForeignPeer& link : links) {
                link.Send(first + MessageFrame("t", ""));
            }
            look();
            EXPECT_EQ(me.received.size(), links.size());
        };
        for (const ForeignPeer& link : links) {
            ASSERT_EQ(link.Connect(m_settings.directory + "/d.job/a.target"), 0);
        }
        hearFromAll([&] { me.Look(); }, GreetingFrame({}));
        hearFromAll([&] { me.Look(); }, "");
        me.board.RegisterCommunicator("another");
        int never = 1;
        hearFromAll([&] { me.board.WaitingLoop(&never, 0); }, "");
    }});
}

}  // namespace
