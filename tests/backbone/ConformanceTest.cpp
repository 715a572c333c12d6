// What the backbone promises, where it takes real processes to show it; tests/simulated has all the rest.

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "Peer.h"

namespace {

using ::testing::ContainsRegex;

class Conformance : public OnLane {};

INSTANTIATE_TEST_SUITE_P(Local, Conformance, ::testing::Values("memory", "socket"), LaneName);

TEST_P(Conformance, AcceptedMessagesOutliveTheirSenderAndPrecedeTheReportOfEachLife) {
    Play({{"early", "send %2F/../\xff 20 300 &"},
          {"target", "declare %2F/../\xff"},
          {"early", "", "0 messages"},
          {"target", "receive %2F/../\xff"},
          {"target", "watch %2F/../\xff"},
          {"target", "await 20 0", "20 messages"},
          {"first", "declare phoenix"},
          {"first", "send %2F/../\xff 100 300"},
          {"first", "crash"},
          {"target", "await 120 1", "120 messages, phoenix lost after 120"},
          {"second", "declare phoenix"},
          {"second", "send %2F/../\xff 100 300"},
          {"second", "leave"},
          {"target", "await 220 2", "220 messages, phoenix lost after 120, phoenix lost after 220"}});
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
          {"left", "", "200064 messages"}});
}

TEST_P(Conformance, CrowdHearsEveryMessageInOrder) {
    constexpr int kAll = 40;
    std::vector<Step> steps;
    const auto all = [&](const std::string& order, const std::string& account) {
        for (int number = 0; number < kAll; ++number) {
            steps.push_back({std::to_string(number), fmt::format(fmt::runtime(order), number), account});
        }
    };
    all("receive {}", "");
    for (int target = 0; target < kAll; ++target) {
        all(fmt::format("send {} 10 {} &", target, target % 20 == 0 ? 300'000 : target * 8), "");
    }
    all("await 400 0 &", "");
    all("", "400 messages");
    Play(steps);
}

TEST_P(Conformance, BodiesOfAnySizeArriveWhole) {
    Play({{"target", "receive target"},
          {"sender", "send target 1 0 &"},
          {"sender", "send target 1 200000000 &"},
          {"sender", "send target 1 0 &"},
          {"target", "await 3 0", "3 messages"}});
}

#if !defined(__SANITIZE_ADDRESS__)  // its shadow memory is beyond any such limit

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

}  // namespace
