#ifndef ZYL_BACKBONE_LOCAL_POLLER_H
#define ZYL_BACKBONE_LOCAL_POLLER_H

#include <chrono>
#include <optional>
#include <span>

#include "FileDescriptor.h"

namespace zyl::backbone::local {

/// What a watched descriptor has come to.
struct Readiness {
    bool input = false;
    bool room = false;
    bool end = false;
};

/// Told by the poller of its descriptor. Ends no entry meanwhile.
class Watched {
  public:
    virtual ~Watched() = default;
    virtual void Ready(const Readiness& readiness) = 0;
};

class Poller;

/// For as long as this object lives, a poller tells `watched` of a descriptor. It ends before the descriptor
/// is closed: for the poller a descriptor is open while any process has it, so with a copy in a child of
/// this one it would go on telling.
class PollerEntry {
  public:
    PollerEntry(const Poller& poller, int descriptor, Watched& watched);
    PollerEntry(const PollerEntry&) = delete;
    PollerEntry& operator=(const PollerEntry&) = delete;
    ~PollerEntry();
    /// Whether `watched` is to be told when there is room to write, too.
    void ForRoom(bool room);

  private:
    const Poller& m_poller;
    int m_descriptor;
    Watched& m_watched;
};

/// Waits for any of many descriptors, and outlives its entries. Changes are told once (edge-triggered):
/// whoever is told reads until nothing is left, or remembers that there may be more.
class Poller {
  public:
    Poller();
    /// Waits until something is ready, up to `limit` (none: without bound), and tells what is. An interrupted
    /// wait returns. False when nothing was ready.
    bool Wait(std::optional<std::chrono::milliseconds> limit);
    /// The same for several pollers at once.
    static void WaitForAny(std::span<Poller* const> pollers, std::optional<std::chrono::milliseconds> limit);

  private:
    friend class PollerEntry;

    FileDescriptor m_descriptor;
};

}  // namespace zyl::backbone::local

#endif
