#ifndef ZYL_BACKBONE_SYSTEM_SYSTEM_H
#define ZYL_BACKBONE_SYSTEM_SYSTEM_H

#include <chrono>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// The seam between the decisions of the local transport and an operating system: a clock, the names of a
/// domain, byte channels, shared memory, and one waiter for a process. Every call does something at once or
/// says why not; only System::Wait blocks. Everything but System::Wake is used on one thread.
///
/// Nothing here assumes descriptors, a page size, process numbers that are unique, or a system that tells
/// that memory runs out in any other way than by an answer.

namespace zyl::backbone::system {

using Clock = std::chrono::steady_clock;
/// The moment at which a wait ends by itself; none: it does not.
using Deadline = std::optional<Clock::time_point>;

/// Tells one process from every other one there ever was or will be: 128 random bits. All zero: nobody.
struct Identity {
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    friend auto operator<=>(const Identity&, const Identity&) = default;
};

/// This process. All but the identity is for people.
struct Self {
    Identity identity;
    int pid = 0;
    std::string host;
    std::string user;
};

/// Memory that two processes share. It begins on a page, holds zeros when it is made, and is unmapped with
/// this object; the other process keeps what it has mapped.
class Memory {
  public:
    virtual ~Memory() = default;
    virtual std::span<char> Bytes() const = 0;
    /// Has the system put real memory behind a part of it that is about to be used for the first time: at
    /// once it costs much less than page by page. Without effect where that is not possible.
    virtual void Prepare(std::size_t offset, std::size_t size) = 0;
};

/// What has become of a watched channel or of a domain's names.
struct Readiness {
    bool input = false;  ///< there is something to receive, or somebody to accept
    bool room = false;   ///< Send, which answered kNotNow, may get on
    bool end = false;    ///< the other process has closed its end, or is gone
};

/// Is told by System::Wait. It may use its channel meanwhile, and destroys none.
class Watcher {
  public:
    virtual ~Watcher() = default;
    virtual void Ready(const Readiness& readiness) = 0;
};

enum class Progress {
    kSome,    ///< `bytes` of them, at least one
    kNotNow,  ///< no room, or nothing to receive: the watcher is told when that changes
    kEnded,   ///< the other end is gone, and (for Receive) all it sent was received
    kShortage  ///< this process or the system lacks something; nothing was lost, and nobody tells when it is over
};

struct Moved {
    Progress progress;
    std::size_t bytes = 0;
};

/// A stream of bytes in both directions between two processes, in order, with shared memory that travels at
/// its place among them. What was sent before an end, also before the sender was killed, can be received.
class Channel {
  public:
    /// Closes this end.
    virtual ~Channel() = default;

    /// From now on `watcher`, which outlives the channel, is told of every change: first of what there is
    /// already, then each time when bytes or the end have come since, and once when there is room after a
    /// Send that answered kNotNow. It may be told without a change. Called once.
    virtual void Watch(Watcher& watcher) = 0;

    /// Sends as many of the bytes, which are not none, as there is room for. The first 4096 bytes over a new
    /// channel find room at once.
    virtual Moved Send(std::span<const char> bytes) = 0;
    /// The same, and the memory arrives with the first of the bytes. Once it has been sent this process keeps
    /// its mapping only. A memory is handed over once.
    virtual Moved SendWithMemory(std::span<const char> bytes, Memory& memory) = 0;
    /// Receives into `room`, which is not empty. A call that brings a memory receives at least the first of
    /// the bytes that it came with, and none from behind them.
    virtual Moved Receive(std::span<char> room) = 0;

    /// How many objects came with what was received and were not taken yet, whatever they are: a stranger may
    /// send any number of anything.
    virtual std::size_t Waiting() const = 0;
    /// Takes the oldest of them.
    struct Arrival {
        std::unique_ptr<Memory> memory;  ///< null: none came, or it is no shared memory, or cannot be mapped
        std::string problem;             ///< why it is null
    };
    virtual Arrival TakeMemory() = 0;

    /// Whether the other end is closed, whatever is still to be received.
    virtual bool HasEnded() = 0;
};

/// A name as its holder has written it down.
struct Entry {
    std::string name;
    Identity identity;        ///< of the holder
    int pid = 0;              ///< of the holder, for people
    std::string host;         ///< of the holder, for people
    bool announced = false;   ///< false: a passing helper
    bool watches = false;     ///< the holder wants to hear of every newcomer
    std::uint64_t order = 0;  ///< greater than that of every earlier holder of this name
};

/// The names of one domain: who holds them, and how to reach the holders. A claim belongs to its process and
/// ends with it, however it ends; a new holder is seen only after that. Its end gives back all names of this
/// process, and afterwards nobody can connect to it any more; open channels are not affected.
class Names {
  public:
    virtual ~Names() = default;

    /// Takes the name for this process, which can be connected to from then on. Not taken: `entry` is what
    /// the living holder has written, as far as it has. A name may also be refused for a moment because its
    /// holder is just dying, or what it left is just being removed; whoever wants to be sure asks again.
    struct Claimed {
        bool taken = false;
        Entry entry;  ///< taken: this process's own
    };
    virtual Claimed Claim(const std::string& name, bool announced) = 0;
    /// Lets every later List show that the holder of `name`, this process, watches.
    virtual void MarkWatcher(const std::string& name) = 0;

    /// What was written last for every name, this process's among them; holders may be dead. Who claims a
    /// name or marks it and lists afterwards, and another one who does the same, do not both miss each other.
    virtual std::vector<Entry> List() = 0;
    /// The same for one name; nothing where nobody has written, or it cannot be seen now.
    virtual std::optional<Entry> Find(const std::string& name) = 0;
    /// Whether the entry's holder still holds it.
    enum class Holding {
        kYes,
        kNo,       ///< it is free, or another one holds it: the entry's holder has left the domain, or died
        kUnknown,  ///< that cannot be seen now, for want of something
    };
    virtual Holding IsHeld(const Entry& entry) = 0;

    /// Opens a channel to the entry's holder, and to nobody else, without waiting for it to accept.
    enum class Reached {
        kConnected,
        kNotNow,  ///< the holder may be there, but has no room for another one, or something is short: try again
        kNobody,  ///< the holder is gone
    };
    struct Connection {
        Reached reached;
        std::unique_ptr<Channel> channel{};
    };
    virtual Connection Connect(const Entry& entry) = 0;

    /// Tells `watcher`, which outlives this object, by `input` that somebody may wait to be accepted. Called
    /// once, before the first Claim.
    virtual void Watch(Watcher& watcher) = 0;
    /// Accepts the next one of those who have connected, in their order.
    enum class Welcome {
        kAccepted,
        kRefused,   ///< somebody was sent away, or went: there may be another one
        kNobody,    ///< nobody waits; the watcher is told when somebody does
        kShortage,  ///< somebody waits, but there is no place; nobody tells when that is over
    };
    struct Acceptance {
        Welcome welcome;
        std::unique_ptr<Channel> channel{};
        std::string problem{};  ///< what is short
        int pid = 0;            ///< of who has connected, as the system tells it; 0: it does not
    };
    virtual Acceptance Accept() = 0;

    /// Where this domain is, for people.
    virtual std::string Place() const = 0;
};

/// One operating system, as one process sees it. It outlives what it makes.
class System {
  public:
    virtual ~System() = default;

    virtual const Self& Me() const = 0;

    virtual Clock::time_point Now() = 0;
    /// The same from a clock that costs next to nothing and moves every few milliseconds.
    virtual Clock::time_point RoughlyNow() = 0;
    /// The processor that this thread runs on, as a number of its own; -1 where that is not known.
    virtual int Processor() = 0;
    /// A breath in a loop that waits for another processor.
    virtual void Pause() = 0;

    /// Joins the domain `domain` below the place `base` (empty: the usual one). What cannot be used is a
    /// fatal error that says what to do.
    virtual std::unique_ptr<Names> Join(const std::string& base, const std::string& domain) = 0;

    /// Memory that can be handed to one other process; null when there is none to be had.
    virtual std::unique_ptr<Memory> MakeMemory(std::size_t size) = 0;

    /// Tells every watcher what has changed, and waits for that until the deadline; one that has passed: only
    /// looks. Returns after it has told somebody, at the deadline, after Wake, or without a reason.
    virtual void Wait(Deadline deadline) = 0;
    /// Ends the current or the next wait. From any thread, or a signal handler.
    virtual void Wake() noexcept = 0;
};

}  // namespace zyl::backbone::system

#endif
