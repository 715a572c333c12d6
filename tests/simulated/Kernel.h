#ifndef ZYL_TESTS_SIMULATED_KERNEL_H
#define ZYL_TESTS_SIMULATED_KERNEL_H

#include <fmt/format.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "system/System.h"

namespace simulated {

class Process;

/// What may be short.
enum class Fault : std::uint8_t {
    kSend,
    kReceive,
    kMakeMemory,
    kTakeMemory,
    kAccept,
    kConnect,
    kFind,
    kIsHeld,
    kFaults
};

/// What a watcher is told of, edge by edge.
struct Source {
    int number = 0;  // of a channel's end, for stories; 0: the names of a domain
    Process* owner = nullptr;
    zyl::backbone::system::Watcher* watcher = nullptr;
    zyl::backbone::system::Readiness pending;
    bool queued = false;

    /// The watcher, as soon as there is one, is to be told.
    void Notify(const zyl::backbone::system::Readiness& news);
};

/// Memory that is shared. It stays until the world ends.
struct Pages {
    std::unique_ptr<char[]> bytes;
    std::size_t size;
};

/// One end of a channel.
struct End : Source {
    /// Memory that came with the bytes from `from` to before `to`, which count from the first one of all.
    struct Parcel {
        std::uint64_t from;
        std::uint64_t to;
        Pages* pages;
    };

    End* other = nullptr;
    int copies = 1;  // open handles; none: closed
    bool wantsRoom = false;
    /// Sent by the other one, not received: they begin at `received`, counted from the first one.
    std::string bytes;
    std::uint64_t received = 0;
    std::deque<Parcel> parcels;
    /// Received, not taken.
    std::deque<Pages*> arrived;
};

/// Where the processes of a domain connect to one of them.
struct Listener : Source {
    int copies = 1;
    zyl::backbone::system::Identity identity;
    std::deque<End*> queue;
};

/// A name of a domain.
struct Slot {
    std::string name;
    Process* holder = nullptr;
    /// What the last one who has written wrote.
    std::optional<zyl::backbone::system::Entry> entry;
    /// Whether that is the holder.
    bool written = false;
    std::uint64_t order = 0;
    /// Until then what the last holder has left is being removed.
    zyl::backbone::system::Clock::time_point busyUntil{};
};

using Handle = std::variant<End*, Listener*, Slot*>;

/// The objects that outlive processes. Nothing here is a point where another one may run.
class Kernel {
  public:
    /// Both ends of a new channel.
    std::pair<End*, End*> Connect();
    Listener& Listen(const std::string& domain, Process& owner);
    Listener* Find(const std::string& domain, const zyl::backbone::system::Identity& identity);
    Slot& SlotOf(const std::string& domain, const std::string& name);
    std::map<std::string, Slot>& SlotsOf(const std::string& domain) { return m_slots[domain]; }
    Pages& Make(std::size_t size);
    std::vector<Handle> HandlesOf(const Process& process);

    std::size_t CountOfChannels(const Process& process) const;
    /// Whether one of its channels has no room for what it wanted to send.
    bool IsHeldUp(const Process& process) const;
    static const char* KindOf(const Handle& handle);
    /// Names a word of shared memory in a story.
    std::string Where(const void* word) const;

    static void Close(const Handle& handle);
    /// One more process has it.
    static void Copy(const Handle& handle);

  private:
    static void Close(End& end);
    static void Close(Listener& listener);

    std::deque<End> m_ends;
    std::map<std::string, std::deque<Listener>> m_listeners;
    std::map<std::string, std::map<std::string, Slot>> m_slots;
    std::deque<Pages> m_pages;
};

}  // namespace simulated

#endif
