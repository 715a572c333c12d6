#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "PortBlock.h"
#include "SocketFault.h"
#include "ZYLMsgPortFinder.h"

namespace {

TEST(PortFinder, RunsThroughTheRangesItIsGiven) {
    const struct {
        const char* spec;
        std::vector<int> candidates;
    } cases[] = {
        {"700-702", {700, 701, 702, 700, 701}},
        {"700-702,800", {700, 701, 702, 800, 700}},
        {"9-9,5,9", {9, 5, 9, 9, 5}},  // neither sorted nor merged
        {"0,0-10,abc,12x,10-5,10-x,7", {7, 7}},
        {"10-", {10, 10}},
        {"10-12-99", {10, 11, 12, 10}},
        {" 10-\t11", {10, 11, 10}},
        {"10 -11,7", {7, 7}},
        {"-10,7", {7, 7}},
        {"5,,7", {5, 5}},
        {",5", {0, 0}},
        {"", {0, 0}},
        {"2147483646-99999999999999999999", {2147483646, 2147483647, 2147483646}},
        {"-99999999999999999999,7-4294967298", {7, 8}},
    };
    for (const auto& [spec, candidates] : cases) {
        SCOPED_TRACE(spec);
        ZYLMsgPortFinder finder(spec);
        for (const int candidate : candidates) {
            EXPECT_EQ(finder.GetPort(), candidate);
        }
    }
}

TEST(PortFinder, GivesTheFreePortsInTurnAndStopsAfterOneRound) {
    const PortBlock ports;
    const TestSocket occupied = TestSocket::BoundIpv4(ports[1], INADDR_LOOPBACK);
    ASSERT_GE(occupied.Descriptor(), 0);
    ZYLMsgPortFinder finder((std::to_string(ports[0]) + "-" + std::to_string(ports[2])).c_str());
    for (const int index : {0, 2, 0}) {
        EXPECT_EQ(finder.FindOpenPort(), ports[index]);
    }
    EXPECT_GE(TestSocket::BoundIpv4(ports[0], INADDR_ANY).Descriptor(), 0) << "the finder still holds it";
    {
        const SocketFault fault(AF_INET, EMFILE);
        EXPECT_EQ(finder.FindOpenPort(), 0);
        EXPECT_EQ(fault.Failures(), 3);
    }
    EXPECT_EQ(finder.FindOpenPort(), ports[2]);
}

TEST(PortFinder, WithoutRangesMakesOneAttemptWithAPortOfTheSystemsChoice) {
    ZYLMsgPortFinder finder("abc");
    EXPECT_GT(finder.FindOpenPort(), 0);
    const SocketFault fault(AF_INET, EMFILE);
    EXPECT_EQ(finder.FindOpenPort(), 0);
    // EMFILE is no reason for the connector to try another number: one socket, one attempt.
    EXPECT_EQ(fault.Failures(), 1);
}

TEST(PortFinder, TriesTheLow16BitsOfALargeCandidateUntilTheyAre0) {
    const PortBlock ports;
    EXPECT_EQ(ZYLMsgPortFinder(std::to_string(65536 + ports[0]).c_str()).FindOpenPort(), ports[0]);
    EXPECT_GT(ZYLMsgPortFinder("65536").FindOpenPort(), 0) << "the first candidate: the system's choice";
    ZYLMsgPortFinder finder("65535-70000");  // a connector that reports 65535 holds no port
    EXPECT_EQ(finder.FindOpenPort(), 0);
    EXPECT_EQ(finder.GetPort(), 65537);
}

}  // namespace
