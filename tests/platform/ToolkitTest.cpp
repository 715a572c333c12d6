#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "PortBlock.h"
#include "QORSocketConnector.h"
#include "QORToken.h"
#include "SocketFault.h"

namespace {

QORSocketConnector Connector(int port) {
    return {static_cast<unsigned short>(port), 10, 2};
}

bool BoundByOthers(int port) {
    return TestSocket::BoundIpv4(port, INADDR_ANY).Descriptor() < 0 &&
           (!PortBlock::MachineHasIpv6() || TestSocket::BoundIpv6(port, in6addr_any).Descriptor() < 0);
}

TEST(Token, CutsAtEachSeparatorAndThenGivesEmptyPieces) {
    const struct {
        const char* text;
        const char* separator;
        std::vector<std::string> pieces;
    } cases[] = {
        {"", ",", {"", ""}},
        {",a,,bc,", ",", {"", "a", "", "bc", "", ""}},
        {"a::b:c", "::", {"a", "b:c", ""}},
        {"\u00e9\u2192\u00e8", "\u2192", {"\u00e9", "\u00e8", ""}},
        {"a,b", "", {"a,b", ""}},
    };
    for (const auto& [text, separator, pieces] : cases) {
        SCOPED_TRACE(text);
        QORToken token(QORUnicodeString(text), 0);  // outlives the string it is made from
        for (const std::string& piece : pieces) {
            EXPECT_EQ(token.GetNextToken(separator, nullptr).ConvertToChar(), piece);
        }
    }
}

TEST(SocketConnector, HoldsADeclaredPortUntilItGoes) {
    const PortBlock ports;
    {
        QORSocketConnector holder = Connector(ports[0]);
        EXPECT_EQ(holder.GetPort(), QORSocketConnector::kNoPort);
        ASSERT_EQ(holder.Declare(nullptr), 0);
        EXPECT_EQ(holder.GetPort(), ports[0]);
        EXPECT_TRUE(BoundByOthers(ports[0]));

        QORSocketConnector second = Connector(ports[0]);
        EXPECT_EQ(second.Declare(nullptr), EADDRINUSE);
        EXPECT_EQ(second.GetPort(), QORSocketConnector::kNoPort);

        EXPECT_EQ(holder.Declare(nullptr), 0) << "a second declaration stands in its own way";
    }
    EXPECT_FALSE(BoundByOthers(ports[0]));
}

TEST(SocketConnector, RefusesAPortThatAnySocketHas) {
    const PortBlock ports;
    for (const int option : {0, SO_REUSEADDR, SO_REUSEPORT}) {
        for (const bool listening : {false, true}) {
            for (int occupant = 0; occupant < (PortBlock::MachineHasIpv6() ? 4 : 2); ++occupant) {
                SCOPED_TRACE(testing::Message() << "option " << option << " listening " << listening
                                                << " occupant " << occupant);
                const TestSocket socket =
                    occupant == 0   ? TestSocket::BoundIpv4(ports[0], INADDR_ANY, option)
                    : occupant == 1 ? TestSocket::BoundIpv4(ports[0], INADDR_LOOPBACK, option)
                    : occupant == 2 ? TestSocket::BoundIpv6(ports[0], in6addr_any, option)
                                    : TestSocket::BoundIpv6(ports[0], in6addr_loopback, option);
                ASSERT_GE(socket.Descriptor(), 0);
                ASSERT_EQ(listening ? listen(socket.Descriptor(), 1) : 0, 0);
                QORSocketConnector connector = Connector(ports[0]);
                EXPECT_EQ(connector.Declare(nullptr), EADDRINUSE);
                EXPECT_EQ(connector.GetPort(), QORSocketConnector::kNoPort);
            }
        }
    }
    QORSocketConnector afterwards = Connector(ports[0]);
    EXPECT_EQ(afterwards.Declare(nullptr), 0) << "a refused declaration left a socket behind";
}

TEST(SocketConnector, ForPort0HoldsOneNumberForBothFamilies) {
    std::vector<std::unique_ptr<QORSocketConnector>> connectors;
    for (int index = 0; index < 20; ++index) {
        connectors.push_back(std::make_unique<QORSocketConnector>(static_cast<unsigned short>(0), 10, 2));
        ASSERT_EQ(connectors.back()->Declare(nullptr), 0);
        EXPECT_GT(connectors.back()->GetPort(), 0);
        EXPECT_TRUE(BoundByOthers(connectors.back()->GetPort()));
    }
}

TEST(SocketConnector, DoesWithoutIpv6ButReportsAnyOtherErrorAndHoldsNothing) {
    const PortBlock ports;
    QORSocketConnector connector = Connector(ports[0]);
    for (const auto& [family, error] :
         {std::pair(AF_INET6, EAFNOSUPPORT), {AF_INET, EMFILE}, {AF_INET6, EMFILE}}) {
        const SocketFault fault(family, error);
        EXPECT_EQ(connector.Declare(nullptr), error == EMFILE ? EMFILE : 0);
        EXPECT_EQ(connector.GetPort(), error == EMFILE ? QORSocketConnector::kNoPort : ports[0]);
    }
    EXPECT_FALSE(BoundByOthers(ports[0]));
}

}  // namespace
