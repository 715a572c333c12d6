#ifndef QORSOCKETCONNECTOR_H
#define QORSOCKETCONNECTOR_H

#include <cstdint>

#include "ZYLPlatformExport.h"

/// Holds a TCP port of this machine, on all its addresses, so that nobody else can take it meanwhile.
///
/// It binds the port and neither listens nor connects: a client that looks for a server does not find this
/// object in its place, and no connection is left behind. Not copyable; used on one thread.
class ZYLPLATFORM_EXPORT QORSocketConnector {
  public:
    /// What GetPort gives while no port is held.
    static constexpr unsigned short kNoPort = 65535;

    /// A connector for `port`; 0 leaves the choice to Declare. The other two numbers concern connectors that
    /// take connections, and are not looked at; callers pass 10 and 2.
    QORSocketConnector(unsigned short port, int backlog, int attempts);
    /// Releases the port.
    ~QORSocketConnector();
    QORSocketConnector(const QORSocketConnector&) = delete;
    QORSocketConnector& operator=(const QORSocketConnector&) = delete;

    /// Takes hold of the port for IPv4 and, where the machine has it, for IPv6; for port 0, of one number
    /// that is free for both. A port is never shared: one that any other socket has bound, for all addresses
    /// or for one alone (the loopback address, say), is refused, and so is one whose last connections the
    /// system still winds up (about a minute). What an earlier call holds is released first.
    ///
    /// The argument is not looked at; callers pass null.
    /// @return 0, or the system's error number (`errno`), and then nothing is held
    int Declare(const char* unused);

    /// The port that is held, or kNoPort.
    unsigned short GetPort() const;

  private:
    int Hold();
    void Release();

    const unsigned short m_requestedPort;
    unsigned short m_port = kNoPort;
    std::intptr_t m_ipv4Socket = -1;  ///< -1, or the system's handle of the socket that holds the port
    std::intptr_t m_ipv6Socket = -1;  ///< the same for IPv6
};

#endif
