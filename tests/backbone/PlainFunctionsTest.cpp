// The plain functions and their one backbone a process: its forks, and its threads.

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "Peer.h"
#include "ZYLFeaBackbone.h"

namespace {

using ::testing::HasSubstr;

constexpr const char* kForked = "this process was forked from one that uses the backbone";

using PlainFunctionsDeathTest = WithProcesses;
using PlainFunctions = WithProcesses;

TEST_F(PlainFunctionsDeathTest, ForkedChildMayCallNothingAndNotReturnFromTheHandlerThatForkedIt) {
    Process parent([] {
        static int s_number = 0;
        void (*const kCalls[])() = {
            [] { RegisterCommunicator("other", &s_number); },
            [] { DeclareApplicationId(s_number, "child", true); },
            [] { AssociateHandler(s_number, "parent", nullptr); },
            [] { AssociateDisconnectHandler(s_number, "parent", nullptr); },
            [] { SendRequest(s_number, "parent", nullptr, nullptr, nullptr); },
            [] { WaitingLoop(s_number, 0, &s_number); },
            [] { BBSysLoopWait(&s_number, 0); },
        };
        Participant me;
        for (void (*const call)() : kCalls) {
            EXPECT_DEATH(call(), HasSubstr(kForked));
        }
        me.Receive("parent");
        me.Send("parent", 1, 8);
        me.onMessage = [] {
            const pid_t child = fork();
            int status = 0;
            if (child != 0) {
                waitpid(child, &status, 0);
                EXPECT_EQ(WTERMSIG(status), SIGABRT);
            }
        };
        me.Await(1, 0);
        return 0;
    });
    EXPECT_EQ(parent.Wait(), "status 0") << parent.Output();
    EXPECT_THAT(parent.Output(), HasSubstr(kForked));
}

TEST_F(PlainFunctionsDeathTest, ThreadsMayTakeTurnsButNotBeInsideAtOnce) {
    Process process([] {
        Participant me;
        std::thread([&] { me.Receive("parent"); }).join();
        me.onMessage = [&] { std::thread([&] { me.Receive("other"); }).join(); };
        me.Send("parent", 1, 8);
        Tell("no turn was refused");
        me.Await(1, 0);
        return 0;
    });
    process.AwaitLine("no turn was refused");
    process.AwaitLine("AssociateHandler was called while another thread is inside the backbone");
    EXPECT_EQ(process.Wait(), "signal 6");
}

TEST_F(PlainFunctions, LoopsEndByTheirConditionOverOneDomainOrAll) {
    Process process([] {
        Participant me;
        me.Receive("self");
        me.Send("self", 2, 8);
        int condition = 0;
        WaitingLoop(me.Domain(), -1, &condition);
        EXPECT_EQ(me.Account(), "0 messages") << "a condition that is 0 already ends the wait at once";
        me.onMessage = [&] { ++condition; };
        condition = 5;
        WaitingLoop(me.Domain(), -1, &condition);
        EXPECT_EQ(me.Account(), "1 messages") << "any change ends the wait after the callback that made it";
        BBSysLoopWait(&condition, -1);
        EXPECT_EQ(me.Account(), "2 messages");
        return 0;
    });
    EXPECT_EQ(process.Wait(), "status 0") << process.Output();
}

/// Links come and go while children have copies of them: one that runs no handler of the fork, as every child
/// for a moment, one that executes a program, one that stays and one that ends.
TEST_F(PlainFunctions, ForkedChildrenOfAHandlerDisturbNoLinkAndHideNotTheParentsEnd) {
    constexpr int kRounds = 5;
    std::map<std::string, Peer> peers;
    Play(peers, {{"watcher", "watch watcher"}});
    Process parent([] {
        Participant me;
        me.Receive("parent");
        std::vector<pid_t> children;
        me.onMessage = [&] {
            children.push_back(_Fork());
            if (children.back() == 0 || fork() == 0) {
                pause();
            }
            if (fork() == 0) {
                execlp("sleep", "sleep", "60", nullptr);
            }
            const pid_t last = fork();
            if (last == 0) {
                std::exit(0);
            }
            int status = -1;
            waitpid(last, &status, 0);
            EXPECT_EQ(status, 0);
            Tell(me.Account());
        };
        me.Await(kRounds, 0);
        for (const pid_t child : children) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
        return HasFailure() ? 1 : raise(SIGKILL);
    });
    for (int round = 1; round <= kRounds; ++round) {
        Play({{"another", "send parent 1 8"}, {"another", "leave"}});
        parent.AwaitLine(std::to_string(round) + " messages");
    }
    Play(peers, {{"watcher", "await 0 1", "0 messages, parent lost after 0"}});
}

}  // namespace
