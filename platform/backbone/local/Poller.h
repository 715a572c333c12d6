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

/// Told by the poller until its descriptor is closed; lives as long. Closes no watched descriptor meanwhile.
class Watched {
  public:
    virtual ~Watched() = default;
    virtual void Ready(const Readiness& readiness) = 0;
};

/// Waits for any of many descriptors. Changes are told once (edge-triggered): whoever is told reads until
/// nothing is left, or remembers that there may be more.
class Poller {
  public:
    Poller();
    void Watch(int descriptor, Watched& watched);
    /// Whether `watched` is to be told when there is room to write, too.
    void WatchRoom(int descriptor, Watched& watched, bool room);
    /// Waits until something is ready, up to `limit` (none: without bound), and tells what is. An interrupted
    /// wait returns. False when nothing was ready.
    bool Wait(std::optional<std::chrono::milliseconds> limit);
    /// The same for several pollers at once.
    static void WaitForAny(std::span<Poller* const> pollers, std::optional<std::chrono::milliseconds> limit);

  private:
    FileDescriptor m_descriptor;
};

}  // namespace zyl::backbone::local

#endif
