#include <fmt/format.h>
#include <gtest/gtest.h>

#include <vector>

#include "PortBlock.h"
#include "ZYLMsgPortFinder.h"

namespace {

TEST(PortFinder, RunsThroughTheRangesItIsGiven) {
    const std::pair<const char*, std::vector<int>> cases[] = {
        {"700-702,800", {700, 701, 702, 800, 700}},
        {"9-9,5,9", {9, 5, 9, 9, 5}},  // neither sorted nor merged
        {"0,0-10,abc,12x,10-5,10-x,7", {7, 7}},
        {"10-", {10, 10}},
        {"10-12-99", {10, 11, 12, 10}},
        {" 10-\t11", {10, 11, 10}},
        {"10 -11,-10,7", {7, 7}},
        {"5,,7", {5, 5}},
        {",5", {0, 0}},
        {"", {0, 0}},
        {"2147483646-99999999999999999999", {2147483646, 2147483647, 2147483646}},
        {"-99999999999999999999,7-4294967298", {7, 8}},
    };
    for (const auto& [ranges, candidates] : cases) {
        ZYLMsgPortFinder finder(ranges);
        for (const int candidate : candidates) {
            EXPECT_EQ(finder.GetPort(), candidate) << ranges;
        }
    }
}

/// A socket that has `port` in one of four ways: for all addresses or for the own one alone, of either family.
TestSocket Occupant(int port, int way, int option) {
    const bool isAny = way % 2 == 0;
    return way < 2 ? TestSocket::BoundIpv4(port, isAny ? INADDR_ANY : INADDR_LOOPBACK, option)
                   : TestSocket::BoundIpv6(port, isAny ? in6addr_any : in6addr_loopback, option);
}

TEST(PortFinder, GivesInTurnThePortsThatNoSocketHasAndStopsAfterOneRound) {
    const PortBlock ports;
    ZYLMsgPortFinder finder(fmt::format("{}-{}", ports[0], ports[2]).c_str());
    for (const int option : {0, SO_REUSEADDR, SO_REUSEPORT}) {
        for (int way = 0; way < (PortBlock::MachineHasIpv6() ? 4 : 2); ++way) {
            const TestSocket occupied = Occupant(ports[1], way, option);
            ASSERT_GE(occupied.Descriptor(), 0);
            EXPECT_EQ(finder.FindOpenPort(), ports[0]);
            EXPECT_EQ(finder.FindOpenPort(), ports[2]) << "option " << option << " way " << way;
            EXPECT_EQ(ZYLMsgPortFinder(fmt::format("{}", ports[1]).c_str()).FindOpenPort(), 0);
        }
    }
    EXPECT_GE(Occupant(ports[0], 0, 0).Descriptor(), 0) << "the finder still holds it";
    EXPECT_EQ(ZYLMsgPortFinder(fmt::format("{}", 65536 + ports[0]).c_str()).FindOpenPort(), ports[0]);
    for (const char* ranges : {"abc", "65536"}) {
        EXPECT_GT(ZYLMsgPortFinder(ranges).FindOpenPort(), 0) << "a port of the system's choice";
    }
    // A connector that reports 65535 holds no port.
    EXPECT_EQ(ZYLMsgPortFinder("65535-70000").FindOpenPort(), 0);
}

}  // namespace
