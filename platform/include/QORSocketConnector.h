#ifndef QORSOCKETCONNECTOR_H
#define QORSOCKETCONNECTOR_H

#include <cstdint>

#include "ZYLPlatformExport.h"

/// Reserves a TCP port on all addresses of this machine, so that no other socket can bind it meanwhile.
///
/// It binds the port and neither listens nor connects, so no client mistakes it for a server and no
/// connection is left behind. Not copyable; used on one thread.
class ZYLPLATFORM_EXPORT QORSocketConnector {
  public:
    /// The result of GetPort while no port is held.
    static constexpr unsigned short kNoPort = 65535;

    /// A connector for `port`; 0 lets the system choose in Declare. The other two numbers concern
    /// connectors that accept connections and are ignored; callers pass 10 and 2.
    QORSocketConnector(unsigned short port, int backlog, int attempts);
    /// Releases the port.
    ~QORSocketConnector();
    QORSocketConnector(const QORSocketConnector&) = delete;
    QORSocketConnector& operator=(const QORSocketConnector&) = delete;

    /// Binds the port for IPv4 and, if the machine has it, for IPv6; for port 0 it chooses one number that
    /// is free for both. A port is never shared: the call fails if another socket has bound it on any
    /// address, or if a connection of the port is still in TIME_WAIT (about a minute). A port held from an
    /// earlier call is released first.
    ///
    /// The argument is ignored; callers pass null.
    /// @return 0, or the system's error number (`errno`) with no port held
    int Declare(const char* unused);

    /// The port that is held, or kNoPort.
    unsigned short GetPort() const;

  private:
    int Hold();
    void Release();

    const unsigned short m_requestedPort;
    unsigned short m_port = kNoPort;
    std::intptr_t m_ipv4Socket = -1;  ///< the handle of the bound socket, or -1
    std::intptr_t m_ipv6Socket = -1;  ///< the same for IPv6
};

#endif
