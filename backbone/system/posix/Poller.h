#ifndef ZYL_BACKBONE_SYSTEM_POSIX_POLLER_H
#define ZYL_BACKBONE_SYSTEM_POSIX_POLLER_H

#include <cstdint>

#include "platform/system/FileDescriptor.h"
#include "system/System.h"

namespace zyl::backbone::system::posix {

/// Waits for any of many descriptors, and outlives its entries. A change is told once (edge-triggered).
class Poller {
  public:
    /// Without descriptors for it this is a fatal error.
    Poller();

    /// See System::Wait and System::Wake.
    void Wait(Deadline deadline);
    void Wake() noexcept;

  private:
    friend class PollerEntry;

    platform::FileDescriptor m_descriptor;
    platform::FileDescriptor m_wake;
};

/// While this object lives, a poller tells `watcher` of a descriptor. It ends before the descriptor is
/// closed: for the poller a descriptor is open while any process has it, so with a copy in a child of this
/// one it would go on telling.
class PollerEntry {
  public:
    PollerEntry(const Poller& poller, int descriptor, Watcher& watcher, bool forRoom);
    PollerEntry(const PollerEntry&) = delete;
    PollerEntry& operator=(const PollerEntry&) = delete;
    ~PollerEntry();

    /// Has the watcher told once when there is room to write.
    void TellOfRoom();

  private:
    friend class Poller;

    void Tell(std::uint32_t events);
    void SetForRoom(bool forRoom);

    const Poller& m_poller;
    int m_descriptor;
    Watcher& m_watcher;
    bool m_forRoom;
};

}  // namespace zyl::backbone::system::posix

#endif
