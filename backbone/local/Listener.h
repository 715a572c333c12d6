#ifndef ZYL_BACKBONE_LOCAL_LISTENER_H
#define ZYL_BACKBONE_LOCAL_LISTENER_H

#include <string>

#include "DomainDirectory.h"
#include "FileDescriptor.h"
#include "Poller.h"

namespace zyl::backbone::local {

/// An application of this process, and the socket on which it is met.
class Listener final : public Watched {
  public:
    /// `knocking` becomes true when somebody waits to be accepted; it and the poller outlive the listener.
    Listener(const Poller& poller, bool& knocking, int number, std::string name, bool announced, Claim claim);

    void Ready(const Readiness& /*readiness*/) override { m_knocking = true; }

    enum class Outcome {
        kAccepted,
        kNobody,
        kRefused,   ///< somebody was sent away, or went: there may be another one
        kShortage,  ///< somebody waits, but a link's descriptors are not to be had; errno says why
    };
    struct Accepted {
        Outcome outcome;
        FileDescriptor socket{};
        int pid = 0;
    };
    Accepted Accept() const;

    int Number() const { return m_number; }
    const std::string& Name() const { return m_name; }
    bool Announced() const { return m_announced; }

    /// Whether its messages may be handed out.
    bool delivered = false;

  private:
    bool& m_knocking;
    int m_number;
    std::string m_name;
    bool m_announced;
    Claim m_claim;
    PollerEntry m_entry;
};

}  // namespace zyl::backbone::local

#endif
