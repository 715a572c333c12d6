#include "QORSocketConnector.h"

#include <gtest/gtest.h>

#include <cerrno>

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

TEST(SocketConnector, HoldsADeclaredPortUntilItGoesAndRefusesOneThatAnySocketHas) {
    const PortBlock ports;
    {
        QORSocketConnector holder = Connector(ports[0]);
        EXPECT_EQ(holder.GetPort(), QORSocketConnector::kNoPort);
        ASSERT_EQ(holder.Declare(nullptr), 0);
        EXPECT_EQ(holder.GetPort(), ports[0]);
        EXPECT_TRUE(BoundByOthers(ports[0]));
        EXPECT_EQ(holder.Declare(nullptr), 0) << "a second declaration stands in its own way";
    }
    for (const int option : {0, SO_REUSEADDR, SO_REUSEPORT}) {
        for (int occupant = 0; occupant < (PortBlock::MachineHasIpv6() ? 4 : 2); ++occupant) {
            SCOPED_TRACE(testing::Message() << "option " << option << " occupant " << occupant);
            const bool isAny = occupant % 2 == 0;
            const TestSocket socket =
                occupant < 2
                    ? TestSocket::BoundIpv4(ports[0], isAny ? INADDR_ANY : INADDR_LOOPBACK, option)
                    : TestSocket::BoundIpv6(ports[0], isAny ? in6addr_any : in6addr_loopback, option);
            ASSERT_GE(socket.Descriptor(), 0);
            EXPECT_EQ(Connector(ports[0]).Declare(nullptr), EADDRINUSE);
        }
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
