// Port specifications. Ports are not taken from the machine: the connector of this program holds every
// seventh one.
#include <string>

#include "Fuzz.h"
#include "QORSocketConnector.h"
#include "ZYLMsgPortFinder.h"

namespace {

constexpr unsigned short kSystemsChoice = 49000;

bool IsFree(int port) {
    return port % 7 == 0;
}

}  // namespace

QORSocketConnector::QORSocketConnector(unsigned short port, int, int) : m_requestedPort(port) {}
QORSocketConnector::~QORSocketConnector() {
    m_port = kNoPort;
}

int QORSocketConnector::Declare(const char*) {
    if (m_requestedPort != 0 && !IsFree(m_requestedPort)) {
        return 1;
    }
    m_port = m_requestedPort != 0 ? m_requestedPort : kSystemsChoice;
    return 0;
}

unsigned short QORSocketConnector::GetPort() const {
    return m_port;
}

void RunInput(std::string_view input) {
    ZYLMsgPortFinder finder(QORUnicodeString(std::string(input).c_str()));
    for (int call = 0; call < 3; ++call) {
        const int port = finder.FindOpenPort();
        Require(port >= 0 && port <= 65535, "a port is a port");
        Require(IsFree(port), "a port that was found is free");
    }
}
