// What the backbone promises, where it takes real processes to show it; tests/simulated has all the rest.

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "Peer.h"
#include "ZYLFeaBackbone.h"

namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

class Conformance : public OnLane {};

INSTANTIATE_TEST_SUITE_P(Local, Conformance, ::testing::Values("memory", "socket"), LaneName);

TEST_P(Conformance, AcceptedMessagesOutliveTheirSenderAndPrecedeTheReportOfEachLife) {
    Play({{"early", "send target 20 300 &"},
          {"target", "declare target"},
          {"early", "", "0 messages"},
          {"target", "look", "0 messages"},
          {"target", "receive target"},
          {"target", "watch target"},
          {"target", "await 20 0", "20 messages"},
          {"first", "declare phoenix"},
          {"late", "watch late watcher"},
          {"first", "send target 100 300"},
          {"first", "crash"},
          {"target", "await 120 1", "120 messages, phoenix lost after 120"},
          {"helper", "helper tool"},
          {"helper", "send target 1 8"},
          {"helper", "leave"},
          {"target", "await 121 1"},
          {"second", "declare phoenix"},
          {"second", "send target 100 300"},
          {"second", "leave"},
          {"target", "await 221 2", "221 messages, phoenix lost after 120, phoenix lost after 221"},
          {"target", "look", "221 messages, phoenix lost after 120, phoenix lost after 221"},
          {"late", "await 0 2", "0 messages, phoenix lost after 0, phoenix lost after 0"}});
}

TEST_P(Conformance, WhatCannotBeDeliveredIsDroppedWithALineAndReportedOnce) {
    setenv("ZYL_BACKBONE_CONNECT_TIMEOUT", "0.05", 1);
    std::map<std::string, Peer> peers;
    Play(peers, {{"sender", "watch sender"},
                 {"sender", "send peer 101 8", "0 messages"},
                 {"sender", "look", "0 messages, peer lost after 0"},
                 {"peer", "receive peer"},
                 {"sender", "send peer 1 8"},
                 {"sender", "look", "0 messages, peer lost after 0"},
                 {"peer", "await 1 0", "1 messages"},
                 {"peer", "leave"},
                 {"sender", "await 0 2", "0 messages, peer lost after 0, peer lost after 0"},
                 {"sender", "send peer 1 8"},
                 {"next", "receive peer"},
                 {"sender", "send peer 1 8"},
                 {"next", "await 1 0", "1 messages"},
                 {"sender", "look", "0 messages, peer lost after 0, peer lost after 0"}});
    const std::string& lines = peers["sender"].Output();
    EXPECT_THAT(lines,
                HasSubstr("ZYLFeaBackbone: a message of type 't1' for application 'peer' in domain 'job' is "
                          "dropped: it did not come in time\n"));
    EXPECT_THAT(lines, Not(ContainsRegex("is dropped.*is dropped.*is dropped")))
        << "one for each time it is away";
    EXPECT_THAT(lines,
                HasSubstr("in all 101 messages for application 'peer' in domain 'job' were dropped\n"));
    EXPECT_THAT(lines, HasSubstr("is dropped: it is gone\n"));
}

TEST_P(Conformance, TwoThatSendToEachOtherNeverDeadlockNorMissAWakeUp) {
    Play({{"left", "receive left"},
          {"right", "declare right"},
          {"left", "send right 64 1000000 &"},
          {"left", "send right 200000 64 &"},
          {"left", "await 200064 0 &"},
          {"right", "send left 64 1000000 &"},
          {"right", "receive right &"},
          {"right", "send left 200000 64 &"},
          {"right", "await 200064 0", "200064 messages"},
          {"left", "", "200064 messages"},
          {"right", "echo left"},
          {"right", "await 220064 0 &"},
          {"left", "ping right 20000", "220064 messages"}});
}

TEST_P(Conformance, CrowdHearsEveryMessageInOrder) {
    std::vector<Step> steps;
    for (const auto& [order, account] : {std::pair("receive {}", ""), std::pair("crowd {} 40 30 &", ""),
                                         std::pair("await 1170 0 &", ""), std::pair("", "1170 messages")}) {
        for (int number = 0; number < 40; ++number) {
            steps.push_back({std::to_string(number), fmt::format(fmt::runtime(order), number), account});
        }
    }
    Play(steps);
}

TEST_P(Conformance, BodiesOfAnySizeArriveWhole) {
    Play({{"target", "receive target"},
          {"sender", "send target 1 0 &"},
          {"sender", "send target 1 200000000 &"},
          {"sender", "send target 1 0 &"},
          {"target", "await 3 0", "3 messages"}});
}

/// With fewer descriptors than there are links of the dead, each of which waits for the one before it.
TEST_P(Conformance, ManyLivesUnderOneNameAreHeardWithFewDescriptors) {
    std::map<std::string, Peer> peers;
    Play(peers, {{"target", "descriptors 40"}, {"target", "receive target"}, {"target", "watch target"}});
    for (int life = 0; life < 60; ++life) {
        Play({{"phoenix", "declare phoenix"}, {"phoenix", "send target 1 8"}, {"phoenix", "crash"}});
    }
    peers["target"].Begin("await 60 60");
    const std::string account = peers["target"].Account();
    EXPECT_THAT(account, ::testing::StartsWith("60 messages, phoenix lost after "));
    EXPECT_EQ(std::count(account.begin(), account.end(), ','), 60) << account;
}

#if !defined(__SANITIZE_ADDRESS__)  // its shadow memory is beyond any such limit

TEST_P(Conformance, SenderWithoutMemoryForALaneSendsAllTheSame) {
    Play({{"target", "receive target"},
          {"sender", "declare sender"},
          {"sender", "memory 1000000"},
          {"sender", "send target 50 30000 &"},
          {"target", "await 50 0", "50 messages"}});
}

TEST_P(Conformance, ReceiverWithoutMemoryForAMessageClosesThatLinkAndHearsTheOthers) {
    std::map<std::string, Peer> peers;
    Play(peers, {{"target", "memory 32000000"},
                 {"target", "receive target"},
                 {"target", "await 1 0 &"},
                 {"sender", "watch sender"},
                 {"sender", "send target 1 64000000"},
                 {"sender", "await 0 1", "0 messages, target lost after 0"},
                 {"other", "send target 1 8"},
                 {"target", "", "1 messages"}});
    EXPECT_THAT(peers["target"].Output(), ContainsRegex("is closed: .*memory"));
}

#endif

TEST_P(Conformance, NamesOfAnyLengthAndCharactersStayApart) {
    std::string odd;
    for (int byte = 1; byte < 256; ++byte) {
        odd += static_cast<char>(byte);
    }
    const std::string longest(4096, 'n');
    const std::vector<std::string> names = {"",  ".", "..",    "../escape",      "a/b", "a%2Fb", "A",
                                            "a", odd, longest, longest.substr(1)};
    Process target([&] {
        Participant me;
        me.Watch("watcher");
        std::for_each(names.begin(), names.end(), [&](const std::string& name) { me.Receive(name); });
        Tell("ready");
        me.Await(static_cast<int>(names.size()), 1);
        EXPECT_EQ(me.Account(),
                  fmt::format("11 messages, {} lost after 11", (odd + longest).substr(0, 4096)));
        return 0;
    });
    target.AwaitLine("ready");
    Process sender([&] {
        Participant me;
        me.Declare((odd + longest).substr(0, 4096), true);
        std::for_each(names.begin(), names.end(), [&](const std::string& name) { me.Send(name, 1, 8); });
        return 0;
    });
    EXPECT_EQ(sender.Wait(), "status 0") << sender.Output();
    EXPECT_EQ(target.Wait(), "status 0") << target.Output();
}

TEST_P(Conformance, LoopsEndByConditionOrLimitOverOneDomainOrAll) {
    Process process([] {
        Participant me;
        me.Receive("self");
        int other = 0;
        RegisterCommunicator("other domain", &other);
        me.Send("self", 2, 8);
        int condition = 0;
        WaitingLoop(me.Domain(), -1, &condition);
        EXPECT_EQ(me.Account(), "0 messages") << "a condition that is 0 already ends the wait at once";
        me.onMessage = [&] { ++condition; };
        condition = 5;
        WaitingLoop(other, 20, &condition);
        EXPECT_EQ(me.Account(), "0 messages") << "another domain's messages wait";
        WaitingLoop(me.Domain(), -1, &condition);
        EXPECT_EQ(me.Account(), "1 messages") << "any change ends the wait after the callback that made it";
        BBSysLoopWait(&condition, -1);
        EXPECT_EQ(me.Account(), "2 messages");
        me.onMessage = [] {};
        me.Send("self", 100, 8);
        BBSysLoopWait(&condition, 0);
        EXPECT_EQ(me.Account(), "102 messages") << "a limit of 0 delivers what has come";
        return 0;
    });
    EXPECT_EQ(process.Wait(), "status 0") << process.Output();
}

}  // namespace
