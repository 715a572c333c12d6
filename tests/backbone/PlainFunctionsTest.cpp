#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "World.h"
#include "ZYLFeaBackbone.h"
#include "system/MakeSystem.h"

/// The plain functions and their one backbone a process: its forks, and its threads.

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class PlainFunctions : public ::testing::Test {
  protected:
    World m_world{true};
    /// Makes this process the application `name`; s_received counts its messages, s_handle is called for
    /// each.
    void Become(const char* name) {
        setenv("ZYL_BACKBONE_DIR", m_world.local.directory.c_str(), 1);
        RegisterCommunicator("job", &s_communicator);
        AssociateHandler(s_communicator, name, [](const char*, const void*, int) {
            ++s_received;
            s_handle();
        });
    }
    static void AwaitMessage() {
        int never = -1;
        while (s_received == 0) {
            BBSysLoopWait(&never, 10);
        }
    }
    static int s_communicator;
    static int s_received;
    static void (*s_handle)();
};

int PlainFunctions::s_communicator = 0;
int PlainFunctions::s_received = 0;
void (*PlainFunctions::s_handle)() = [] {};

using PlainFunctionsDeathTest = PlainFunctions;

TEST_F(PlainFunctionsDeathTest, ForkedChildMayCallNothingAndNotReturnFromTheHandlerThatForkedIt) {
    void (*const kCalls[])() = {
        [] { RegisterCommunicator("other", &s_communicator); },
        [] { DeclareApplicationId(s_communicator, "child", true); },
        [] { AssociateHandler(s_communicator, "parent", nullptr); },
        [] { AssociateDisconnectHandler(s_communicator, "parent", nullptr); },
        [] { SendRequest(s_communicator, "parent", nullptr, nullptr, nullptr); },
        [] { WaitingLoop(s_communicator, 0, &s_received); },
        [] { BBSysLoopWait(&s_received, 0); },
    };
    m_world.Play({[&](Participant& /*me*/) {
        Become("parent");
        for (void (*const call)() : kCalls) {
            EXPECT_DEATH(call(), HasSubstr("this process was forked from one that uses the backbone"));
        }
    }});
    m_world.Play({[&](Participant& /*me*/) {
        s_handle = [] {
            if (fork() != 0) {
                wait(nullptr);
                _exit(1);
            }
        };
        EXPECT_DEATH(
            {
                Become("parent");
                SendRequest(
                    s_communicator, "parent", [](void*, int) {}, [] { return 0; }, [] { return "t"; });
                AwaitMessage();
            },
            HasSubstr("this process was forked from one that uses the backbone"));
    }});
}

TEST_F(PlainFunctionsDeathTest, ThreadsMayTakeTurnsButNotBeInsideAtOnce) {
    const auto takeTurnsThenCollide = [this] {
        std::thread([this] { Become("parent"); }).join();
        AssociateHandler(s_communicator, "parent", [](const char*, const void*, int) {
            std::thread([] { RegisterCommunicator("other", &s_communicator); }).join();
        });
        SendRequest(
            s_communicator, "parent", [](void*, int) {}, [] { return 0; }, [] { return "t"; });
        std::fputs("no turn was refused; ", stderr);
        BBSysLoopWait(&s_communicator, 0);
    };
    EXPECT_DEATH(takeTurnsThenCollide(),
                 "no turn was refused; .*RegisterCommunicator was called while another "
                 "thread is inside the backbone");
}

TEST_F(PlainFunctions, ForkedChildWithdrawsNothingAndHidesNotTheParentsEnd) {
    Signal watching;
    Signal forked;
    Signal seen;
    m_world.Play({[&](Participant& me) {
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
                      AwaitMessage();
                      raise(SIGKILL);
                  }});
}

/// Links come and go while children have copies of them: one that has run no handler of the fork, as every
/// child for a moment, and one that executes a program.
TEST_F(PlainFunctions, ForkedChildrenOfAHandlerDisturbNoLink) {
    static std::vector<pid_t> s_children;
    constexpr int kRounds = 5;
    Signal ready;
    Signal again;
    std::vector<Role> roles = {[&](Participant& /*me*/) {
        Become("parent");
        s_handle = [] {
            if (s_children.emplace_back(_Fork()) == 0) {
                pause();
            }
            if (s_children.emplace_back(fork()) == 0) {
                execlp("sleep", "sleep", "60", nullptr);
            }
        };
        ready.Give();
        int never = -1;
        while (s_received < kRounds) {
            BBSysLoopWait(&never, 10);
            again.Give();
        }
        for (const pid_t child : s_children) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
    }};
    roles.push_back([&](Participant& /*me*/) {
        const auto system = zyl::backbone::system::MakeSystem();
        ready.Await();
        for (int round = 0; round < kRounds; ++round) {
            Participant another(zyl::backbone::local::MakeLocalTransport(*system, m_world.local),
                                m_world.settings);
            another.Send("parent", "t", "by a link that goes");
            again.Await();
        }
    });
    m_world.Play(roles);
}

}  // namespace
