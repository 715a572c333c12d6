#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <map>
#include <thread>

#include "World.h"

/// What every transport promises, stated once. tests/backbone/World.h makes the processes.

namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

/// With lanes, and without.
class Conformance : public ::testing::TestWithParam<bool> {
  protected:
    World m_world{GetParam()};
    zyl::backbone::Settings& m_settings = m_world.settings;
};

INSTANTIATE_TEST_SUITE_P(Local, Conformance, ::testing::Bool(),
                         [](const auto& lanes) { return lanes.param ? "memory" : "socket"; });

/// A body that tells its sender, its number and whether a byte of it was changed.
std::string NumberedBody(const std::string& sender, int number, std::size_t size) {
    std::string body = sender + ":" + std::to_string(number) + ":";
    while (body.size() < size) {
        body += static_cast<char>('a' + (body.size() * 7 + static_cast<std::size_t>(number)) % 26);
    }
    return body;
}

/// Sizes of all kinds: none, small, about a page, several chunks.
std::size_t SomeSize(int number) {
    constexpr std::size_t kSizes[] = {0, 1, 63, 64, 65, 4095, 4096, 5000, 70000, 300000, 1100000};
    return number % 97 == 0 ? kSizes[10] : kSizes[static_cast<std::size_t>(number) % 9];
}

TEST_P(Conformance, MessagesArriveInOrderOnceAndWhole) {
    constexpr int kCount = 1500;
    const std::vector<std::string> senders = {"alice", "bob", "carol"};
    std::vector<Role> roles = {[&](Participant& me) {
        std::map<std::string, int> expected;
        me.discard = true;
        me.onMessage = [&](const Received& message) {
            const std::string sender = message.body.substr(0, message.body.find(':'));
            const int number = ++expected[sender];
            ASSERT_EQ(message.body, NumberedBody(sender, number, SomeSize(number)));
            ASSERT_EQ(message.type, "type" + std::to_string(number % 3));
        };
        me.Receive("target");
        me.WaitUntil([&] {
            return expected.size() == senders.size() &&
                   std::all_of(expected.begin(), expected.end(),
                               [](const auto& one) { return one.second == kCount; });
        });
    }};
    for (const std::string& sender : senders) {
        roles.push_back([&, sender](Participant& me) {
            me.Declare(sender);
            for (int number = 1; number <= kCount; ++number) {
                me.Send("target", "type" + std::to_string(number % 3),
                        NumberedBody(sender, number, SomeSize(number)));
            }
        });
    }
    m_world.Play(roles);
}

TEST_P(Conformance, AcceptedMessagesOutliveTheirSenderAndPrecedeItsLoss) {
    constexpr int kCount = 100;  // any transport holds as many without a reader
    for (const bool crash : {false, true}) {
        Signal declared;
        Signal gone;
        m_world.Play({[&](Participant& me) {
                          me.Receive("target");
                          me.Watch("target");
                          declared.Give();
                          gone.Await();
                          std::size_t atLoss = 0;
                          me.WaitUntil([&] {
                              atLoss = me.received.size();
                              return !me.lost.empty();
                          });
                          EXPECT_EQ(atLoss, static_cast<std::size_t>(kCount));
                          EXPECT_EQ(me.received.back().body, NumberedBody("sender", kCount, 300));
                          EXPECT_THAT(me.lost, ElementsAre("sender"));
                      },
                      [&](Participant& me) {
                          declared.Await();
                          me.Declare("sender");
                          for (int number = 1; number <= kCount; ++number) {
                              me.Send("target", "t", NumberedBody("sender", number, 300));
                          }
                          gone.Give();
                          if (crash) {
                              me.Crash();
                          }
                      }});
    }
}

TEST_P(Conformance, HandlersRunOnlyInLoopsAndMaySendAndWait) {
    m_world.Play({[&](Participant& me) {
                      me.Receive("client");
                      me.Send("server", "question", "outer");
                      me.Send("server", "question", "inner");
                      EXPECT_THAT(me.received, SizeIs(0));
                      me.WaitUntil([&] { return me.received.size() == 2; });
                      EXPECT_EQ(me.received[0].body, "answer to inner");
                      EXPECT_EQ(me.received[1].body, "answer to outer");
                  },
                  [&](Participant& me) {
                      int depth = 0;
                      me.onMessage = [&](const Received& message) {
                          ++depth;
                          if (message.body == "outer") {
                              me.WaitUntil([&] { return me.received.size() == 2; });
                              EXPECT_EQ(depth, 2) << "the inner message came in the nested loop";
                          }
                          me.Send("client", "reply", "answer to " + message.body);
                      };
                      me.Receive("server");
                      me.WaitUntil([&] { return me.received.size() == 2; });
                  }});
}

TEST_P(Conformance, HandlerThatWaitsKeepsItsMessageAndHoldsNobodyUp) {
    constexpr std::size_t kSize = 150'000;
    constexpr int kCount = 60;  // several times what a link holds
    m_world.Play({[&](Participant& me) {
                      for (int number = 1; number <= kCount; ++number) {
                          me.Send("waiter", "type" + std::to_string(number),
                                  NumberedBody("sender", number, kSize));
                      }
                  },
                  [&](Participant& me) {
                      int started = 0;
                      me.discard = true;
                      me.onMessage = [&](const Received& message) {
                          ++started;
                          EXPECT_EQ(message.body, NumberedBody("sender", started, kSize));
                          if (started == 1 || started == 5) {
                              me.WaitUntil([&] { return started == kCount; });
                          }
                      };
                      me.Receive("waiter");
                      me.WaitUntil([&] { return started == kCount; });
                  }});
}

TEST_P(Conformance, StartingOrderIsFreeAndMessagesWaitForTheirHandler) {
    Signal trying;
    Signal sent;
    m_world.Play({[&](Participant& me) {
                      trying.Give();
                      for (int number = 1; number <= 20; ++number) {
                          me.Send("late", "t", std::to_string(number));
                      }
                      sent.Give();
                  },
                  [&](Participant& me) {
                      trying.Await();
                      me.Declare("late");
                      sent.Await();
                      me.Look();
                      EXPECT_THAT(me.received, SizeIs(0));
                      me.Receive("late");
                      me.WaitUntil([&] { return me.received.size() == 20; });
                      for (std::size_t index = 0; index < 20; ++index) {
                          EXPECT_EQ(me.received[index].body, std::to_string(index + 1));
                      }
                  }});
}

TEST_P(Conformance, TwoThatSendToEachOtherBeforeTheyWaitNeverDeadlock) {
    const auto role = [](const std::string& own, const std::string& other, bool handlerFirst, int count,
                         std::size_t size) {
        return [=](Participant& me) {
            const std::string body(size, 'x');
            int received = 0;
            me.discard = true;
            me.onMessage = [&](const Received& message) { received += message.body == body ? 1 : 1000; };
            handlerFirst ? me.Receive(own) : me.Declare(own);
            for (int number = 0; number < count; ++number) {
                me.Send(other, "t", body);
            }
            EXPECT_EQ(received, 0) << "nothing is dispatched by a send";
            me.Receive(own);
            me.WaitUntil([&] { return received >= count; });
            EXPECT_EQ(received, count);
        };
    };
    for (const auto& [count, size] : {std::pair<int, std::size_t>{64, 1024 * 1024}, {300'000, 64}}) {
        m_world.Play({role("left", "right", true, count, size), role("right", "left", true, count, size)});
        m_world.Play({role("left", "right", false, count, size), role("right", "left", false, count, size)});
    }
}

/// Directly, and by way of a relay, which sends on what it is sent, and holds no more than its budget
/// meanwhile.
TEST_P(Conformance, SlowReceiverHoldsItsSenderUp) {
    constexpr long kSize = 500'000;
    constexpr long kCount = 400;
    constexpr long kUnderWay = 5'000'000 / kSize;
    const std::string body(kSize, 's');
    for (const auto& [target, limit] :
         {std::pair<const char*, long>{"slow", kUnderWay},
          {"relay", static_cast<long>(m_settings.takenInBudget) / kSize + 2 * kUnderWay}}) {
        Shared sent;
        m_world.Play({[&](Participant& me) {
                          for (long number = 1; number <= kCount; ++number) {
                              me.Send(target, "t", body);
                              sent.Set(number);
                          }
                      },
                      [&](Participant& me) {
                          long count = 0;
                          me.discard = true;
                          me.onMessage = [&](const Received& message) {
                              me.Send("slow", message.type, message.body);
                              ++count;
                          };
                          me.Receive("relay");
                          me.WaitUntil([&] { return target == std::string("slow") || count == kCount; });
                      },
                      [&](Participant& me) {
                          long count = 0;
                          me.discard = true;
                          me.onMessage = [&](const Received& /*message*/) {
                              ++count;
                              ASSERT_LE(sent.Get() - count, limit);
                              std::this_thread::sleep_for(milliseconds(count % 100 == 0 ? 100 : 1));
                          };
                          me.Receive("slow");
                          me.WaitUntil([&] { return count == kCount; });
                      }});
    }
}

TEST_P(Conformance, EveryAnnouncedPeerIsReportedOnceForEachLifeAndHelpersAreNot) {
    Signal watching;
    Signal firstLifeOver;
    Signal helperOver;
    m_world.Play({[&](Participant& me) {
                      me.Watch("watcher");
                      watching.Give();
                      watching.Give();
                      me.WaitUntil([&] { return me.lost.size() == 1; });
                      firstLifeOver.Give();
                      helperOver.Await();
                      me.WaitUntil([&] { return me.lost.size() == 2; });
                      me.Look();
                      EXPECT_THAT(me.lost, ElementsAre("phoenix", "phoenix"));
                  },
                  [&](Participant& me) {
                      watching.Await();
                      me.Declare("phoenix");
                      me.Crash();
                  },
                  [&](Participant& me) {
                      firstLifeOver.Await();
                      me.Declare("phoenix");
                      firstLifeOver.Give();
                  },
                  [&](Participant& me) {
                      watching.Await();
                      me.Declare("helper", false);
                      helperOver.Give();
                  }});
    // One life more than above, with a watcher that starts after the peers did and is linked to none of them.
    Signal declared;
    Signal released;
    m_world.Play({[&](Participant& me) {
                      declared.Await();
                      declared.Await();
                      me.Watch("second watcher");
                      released.Give();
                      released.Give();
                      me.WaitUntil([&] { return me.lost.size() == 2; });
                      EXPECT_THAT(me.lost, UnorderedElementsAre("one", "two"));
                  },
                  [&](Participant& me) {
                      me.Declare("one");
                      declared.Give();
                      released.Await();
                  },
                  [&](Participant& me) {
                      me.Declare("two");
                      declared.Give();
                      released.Await();
                      me.Crash();
                  }});
}

/// With fewer descriptors than there are links of the dead, each of which waits for the one before it.
TEST_P(Conformance, ManyLivesUnderOneNameAreHeardWithFewDescriptors) {
    constexpr std::size_t kLives = 60;
    Signal ready;
    Signal over;
    m_world.Play({[&](Participant& me) {
                      const rlimit few{40, 40};
                      setrlimit(RLIMIT_NOFILE, &few);
                      me.Receive("target");
                      me.Watch("target");
                      ready.Give();
                      over.Await();
                      me.WaitUntil([&] { return me.received.size() == kLives && me.lost.size() == kLives; });
                  },
                  [&](Participant& /*me*/) {
                      ready.Await();
                      for (std::size_t life = 0; life < kLives; ++life) {
                          m_world.Play({[](Participant& me) {
                              me.Declare("phoenix");
                              me.Send("target", "t", "last words");
                              Participant::Crash();
                          }});
                      }
                      over.Give();
                  }});
}

TEST_P(Conformance, LossIsReportedWhileOthersKeepTheWatcherBusy) {
    Signal watching;
    Shared known;
    m_world.Play({[&](Participant& me) {
                      me.discard = true;
                      me.Receive("watcher");
                      me.Watch("watcher");
                      watching.Give();
                      watching.Give();
                      me.WaitUntil([&] { return !me.lost.empty(); });
                      EXPECT_THAT(me.lost, ElementsAre("peer"));
                      known.Set(1);
                      me.WaitUntil([&] { return me.lost.size() == 2; });
                  },
                  [&](Participant& me) {
                      watching.Await();
                      me.Declare("flood");
                      while (known.Get() == 0) {
                          me.Send("watcher", "t", "more");
                      }
                  },
                  [&](Participant& me) {
                      watching.Await();
                      me.Declare("peer");
                      me.Crash();
                  }});
}

TEST_P(Conformance, UndeliverableMessageIsDroppedWithALineAndReportedOnce) {
    m_settings.connectTimeout = milliseconds(50);
    Signal come;
    Signal there;
    m_world.Play({[&](Participant& me) {
                      me.Watch("sender");
                      ::testing::internal::CaptureStderr();
                      me.Send("nobody", "Odd\nType", "lost");
                      for (int number = 0; number < 100; ++number) {
                          me.Send("nobody", "Odd\nType", "lost as well");
                      }
                      const std::string lines = ::testing::internal::GetCapturedStderr();
                      EXPECT_EQ(lines,
                                "ZYLFeaBackbone: a message of type 'Odd\\x0aType' for application 'nobody' "
                                "in domain 'job' is dropped: it did not come in time\n");
                      EXPECT_THAT(me.lost, SizeIs(0));
                      me.Look();
                      EXPECT_THAT(me.lost, ElementsAre("nobody"));
                      come.Give();
                      there.Await();
                      ::testing::internal::CaptureStderr();
                      me.Send("nobody", "t", "at last");
                      EXPECT_EQ(::testing::internal::GetCapturedStderr(),
                                "ZYLFeaBackbone: in all 101 messages for application 'nobody' in domain "
                                "'job' were dropped\n");
                      me.Look();
                      EXPECT_THAT(me.lost, SizeIs(1));
                      come.Give();
                  },
                  [&](Participant& me) {
                      come.Await();
                      me.Receive("nobody");
                      there.Give();
                      me.WaitUntil([&] { return !me.received.empty(); });
                      EXPECT_EQ(me.received[0].body, "at last");
                      come.Await();
                  }});
}

TEST_P(Conformance, SendToAPeerThatHasGoneFailsAtOnceUntilItIsBack) {
    Signal there;
    Signal over;
    Signal back;
    m_world.Play({[&](Participant& me) {
                      me.Watch("sender");
                      there.Await();
                      me.Send("peer", "t", "to the first life");
                      over.Await();
                      me.WaitUntil([&] { return !me.lost.empty(); });
                      ::testing::internal::CaptureStderr();
                      me.Send("peer", "t", "to nobody");
                      EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                                  HasSubstr("is dropped: it is gone"));
                      back.Give();
                      there.Await();
                      me.Send("peer", "t", "to the second life");
                      me.Look();
                      EXPECT_THAT(me.lost, ElementsAre("peer"));
                      over.Give();
                  },
                  [&](Participant& me) {
                      me.Receive("peer");
                      there.Give();
                      me.WaitUntil([&] { return !me.received.empty(); });
                      over.Give();
                  },
                  [&](Participant& me) {
                      back.Await();
                      me.Receive("peer");
                      there.Give();
                      me.WaitUntil([&] { return !me.received.empty(); });
                      EXPECT_EQ(me.received[0].body, "to the second life");
                      over.Await();
                  }});
}

TEST_P(Conformance, BodiesOfAnySizeArriveWhole) {
    constexpr std::size_t kLarge = 200 * 1024 * 1024;
    m_world.Play({[&](Participant& me) {
                      me.Send("target", "empty", "");
                      me.Send("target", "large", std::string(kLarge, 'L'));
                      me.Send("target", "empty", "");
                  },
                  [&](Participant& me) {
                      me.Receive("target");
                      me.WaitUntil([&] { return me.received.size() == 3; });
                      EXPECT_EQ(me.received[0].body, "");
                      ASSERT_EQ(me.received[1].body.size(), kLarge);
                      EXPECT_EQ(me.received[1].body.find_first_not_of('L'), std::string::npos);
                      EXPECT_EQ(me.received[2].type, "empty");
                  }});
}

TEST_P(Conformance, LoopsEndByConditionOrLimitOverOneDomainOrAll) {
    m_world.Play({[&](Participant& me) {
        const int other = me.board.RegisterCommunicator("other domain");
        EXPECT_GT(other, 0);
        EXPECT_NE(other, me.domain);
        EXPECT_EQ(me.board.RegisterCommunicator("other domain"), other);
        me.Receive("self");

        int condition = 0;
        me.Send("self", "t", "first");
        me.board.WaitingLoop(me.domain, -1, &condition);
        EXPECT_THAT(me.received, SizeIs(0)) << "a condition that is 0 already ends the wait at once";

        condition = -1;
        me.onMessage = [&](const Received& /*message*/) { condition = 7; };
        me.board.WaitingLoop(other, 20, &condition);
        EXPECT_THAT(me.received, SizeIs(0)) << "another domain's messages wait";
        me.Send("self", "t", "second");
        me.board.WaitingLoop(me.domain, -1, &condition);
        EXPECT_THAT(me.received, SizeIs(1)) << "any change ends the wait after the callback that made it";
        condition = -1;
        me.board.WaitingLoop(&condition, -1);
        EXPECT_THAT(me.received, SizeIs(2));

        me.onMessage = nullptr;
        for (int number = 0; number < 100; ++number) {
            me.Send("self", "t", "more");
        }
        me.board.WaitingLoop(&condition, 0);
        EXPECT_THAT(me.received, SizeIs(102)) << "a limit of 0 delivers what has come";
    }});
}

TEST_P(Conformance, ProcessMayBeSeveralApplications) {
    Signal ready;
    m_world.Play({[&](Participant& me) {
                      me.Receive("first");
                      me.Receive("second");
                      me.Watch("first");
                      me.Watch("second");
                      ready.Give();
                      me.WaitUntil([&] { return me.received.size() == 4 && me.lost.size() == 4; });
                      EXPECT_THAT(me.lost,
                                  UnorderedElementsAre("left hand", "left hand", "right hand", "right hand"));
                  },
                  [&](Participant& me) {
                      ready.Await();
                      me.Declare("left hand");
                      me.Send("first", "t", "1");
                      me.Declare("right hand");
                      me.Send("second", "t", "1");
                      me.Send("first", "t", "2");
                      me.Send("second", "t", "2");
                  }});
}

TEST_P(Conformance, NamesOfAnyLengthAndCharactersStayApart) {
    std::string odd;
    for (int byte = 1; byte < 256; ++byte) {
        odd += static_cast<char>(byte);
    }
    const std::string longest(4096, 'n');
    const std::vector<std::string> names = {"",
                                            ".",
                                            "..",
                                            "../escape",
                                            "a/b",
                                            "a%2Fb",
                                            "A",
                                            "a",
                                            odd,
                                            longest,
                                            longest.substr(1),
                                            longest.substr(1) + "m"};
    Signal ready;
    m_world.Play({[&](Participant& me) {
                      me.Watch("watcher");
                      for (const std::string& name : names) {
                          me.Receive(name);
                      }
                      ready.Give();
                      me.WaitUntil([&] { return me.received.size() == names.size() && me.lost.size() == 1; });
                      EXPECT_THAT(me.lost, ElementsAre((odd + longest).substr(0, 4096)));
                  },
                  [&](Participant& me) {
                      ready.Await();
                      me.Declare((odd + longest).substr(0, 4096));
                      for (const std::string& name : names) {
                          me.Send(name, "t", name);
                      }
                  }});
}

}  // namespace
