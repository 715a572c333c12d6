#include "QORSocketConnector.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <list>

#include "PortBlock.h"
#include "SocketFault.h"

namespace {

QORSocketConnector Connector(int port) {
    return {static_cast<unsigned short>(port), 10, 2};
}

bool BoundByOthers(int port) {
    return TestSocket::BoundIpv4(port, INADDR_ANY).Descriptor() < 0 &&
           (!PortBlock::MachineHasIpv6() || TestSocket::BoundIpv6(port, in6addr_any).Descriptor() < 0);
}

TEST(SocketConnector, HoldsADeclaredPortUntilItGoes) {
    const PortBlock ports;
    {
        QORSocketConnector holder = Connector(ports[0]);
        EXPECT_EQ(holder.GetPort(), QORSocketConnector::kNoPort);
        ASSERT_EQ(holder.Declare(nullptr), 0);
        EXPECT_EQ(holder.GetPort(), ports[0]);
        EXPECT_TRUE(BoundByOthers(ports[0]));
        EXPECT_EQ(Connector(ports[0]).Declare(nullptr), EADDRINUSE);
        EXPECT_EQ(holder.Declare(nullptr), 0) << "a second declaration stands in its own way";
    }
    EXPECT_FALSE(BoundByOthers(ports[0]));
    std::list<QORSocketConnector> chosenBySystem;
    for (int index = 0; index < 20; ++index) {
        QORSocketConnector& connector = chosenBySystem.emplace_back(static_cast<unsigned short>(0), 10, 2);
        EXPECT_EQ(connector.Declare(nullptr), 0);
        EXPECT_TRUE(connector.GetPort() > 0 && BoundByOthers(connector.GetPort()));
    }
}

TEST(SocketConnector, RefusesAPortThatAnySocketHas) {
    const PortBlock ports;
    for (const int option : {0, SO_REUSEADDR, SO_REUSEPORT}) {
        for (int occupant = 0; occupant < (PortBlock::MachineHasIpv6() ? 8 : 4); ++occupant) {
            SCOPED_TRACE(testing::Message() << "option " << option << " occupant " << occupant);
            const bool isAny = occupant % 2 == 0;
            const TestSocket socket =
                occupant < 4
                    ? TestSocket::BoundIpv4(ports[0], isAny ? INADDR_ANY : INADDR_LOOPBACK, option)
                    : TestSocket::BoundIpv6(ports[0], isAny ? in6addr_any : in6addr_loopback, option);
            ASSERT_GE(socket.Descriptor(), 0);
            const bool isListening = occupant % 4 < 2;
            ASSERT_EQ(isListening ? listen(socket.Descriptor(), 1) : 0, 0);
            QORSocketConnector connector = Connector(ports[0]);
            EXPECT_EQ(connector.Declare(nullptr), EADDRINUSE);
            EXPECT_EQ(connector.GetPort(), QORSocketConnector::kNoPort);
        }
    }
    EXPECT_EQ(Connector(ports[0]).Declare(nullptr), 0) << "a refused declaration left a socket behind";
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
