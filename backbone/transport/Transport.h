#ifndef ZYL_BACKBONE_TRANSPORT_H
#define ZYL_BACKBONE_TRANSPORT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

#include "system/System.h"

/// The seam between the switchboard, which knows what an application may expect, and a transport, which knows
/// how bytes get from one process to another. Everything below is used on one thread.

namespace zyl::backbone {

using system::Clock;
using system::Deadline;

/// Names travel in file names, greetings and diagnostics; nobody's name is longer.
constexpr std::size_t kLongestName = 4096;

/// An application as loss reports name it.
struct Peer {
    std::string application;
    int pid = 0;
    std::string host;
    std::string user;
};

/// Where the bytes of an arrived message lie until the message goes.
class MessageStorage {
  public:
    virtual ~MessageStorage() = default;
};

/// An arrived message: a view of bytes that stay where the transport received them for as long as this object
/// lives.
class Message {
  public:
    /// `type` is NUL-terminated. `application` is the number that Domain::Announce was given for the
    /// receiver.
    Message(int application, const char* type, const void* body, int size,
            std::shared_ptr<const MessageStorage> storage)
        : m_application(application),
          m_type(type),
          m_body(body),
          m_size(size),
          m_storage(std::move(storage)) {}

    int Application() const { return m_application; }
    const char* Type() const { return m_type; }
    const void* Body() const { return m_body; }
    int Size() const { return m_size; }

  private:
    int m_application;
    const char* m_type;
    const void* m_body;
    int m_size;
    std::shared_ptr<const MessageStorage> m_storage;
};

/// A peer's life has ended and its last message was handed out before this. A peer that was not announced is
/// a passing helper, whose leaving is nobody's business but the senders'.
struct PeerLost {
    /// Apart: an event is most often a message, and passed from hand to hand.
    std::shared_ptr<const Peer> peer;
    bool announced = false;
};

using Event = std::variant<Message, PeerLost>;

/// How far a committed message has got.
enum class Progress {
    kDone,     ///< out of this process's hands: it survives the process
    kBlocked,  ///< the peer is full; Commit is to be called again after a wait
    kLost      ///< the peer is gone, and the message with it
};

/// Bytes behind the room for a message that may be written, and are not sent: the switchboard sees there
/// whether a message wrote more than it had announced.
constexpr std::size_t kGuardSize = 8;

/// An open path to one peer, in order and reliable. One message at a time: Reserve, fill, Commit until it is
/// done. Never blocks, never calls up. The domain that opened the link outlives it.
class Link {
  public:
    virtual ~Link() = default;
    virtual const Peer& To() const = 0;
    virtual bool Announced() const = 0;
    /// Whether the peer still lives, as far as can be seen without waiting.
    virtual bool Alive() = 0;
    /// Room for a message of `size` bytes, to be filled before Commit, and for kGuardSize bytes behind it;
    /// null when there is none now (wait, then ask again).
    virtual void* Reserve(const char* type, int size) = 0;
    virtual Progress Commit() = 0;
    /// What the peer last gave to Transport::SayHeldUp, as far as it has come.
    virtual std::uint64_t HeldUp() const = 0;
};

/// Which arrived messages are wanted.
enum class Take {
    kNothing,    ///< none, nor any other event: for a wait that ends by room alone
    kDelivered,  ///< only those for applications that were given to Deliver
    kAll         ///< also those that have to wait for a handler
};

/// Another living application holds the name.
class NameTaken : public std::runtime_error {
  public:
    NameTaken(int pid, const std::string& host)
        : std::runtime_error("name taken"), m_pid(pid), m_host(host) {}
    int Pid() const { return m_pid; }
    const std::string& Host() const { return m_host; }

  private:
    int m_pid;
    std::string m_host;
};

/// One domain as this process sees it. Its end withdraws every application announced through it.
class Domain {
  public:
    virtual ~Domain() = default;

    /// Makes this process the application `name`. `number` comes back in Message::Application. Throws
    /// NameTaken.
    virtual void Announce(int number, const std::string& name, bool announced) = 0;
    /// Messages for the application may be handed out by Next(Take::kDelivered) from now on.
    virtual void Deliver(int number) = 0;
    /// Every announced application of the domain is to be reported by PeerLost when it goes, on behalf of
    /// `number`.
    virtual void Watch(int number) = 0;
    /// A link to the application `target`, or null when it is not there now; the next Wait ends when it may
    /// have come.
    virtual std::unique_ptr<Link> Open(const std::string& target) = 0;
    /// Whether the end of an earlier life of `name`, to which a link was just opened, is still to come out of
    /// Next. Takes in who has come meanwhile, but no message.
    virtual bool OwesLossOf(const std::string& name) = 0;
    /// The next thing that has happened, or nothing. The links take turns. Never waits.
    virtual std::optional<Event> Next(Take take) = 0;
    /// Where this domain looks for an application, and the usual reasons why it is not there: two clauses for
    /// the line of whoever waits for it.
    virtual std::string WhereItLooks() const = 0;
};

/// Makes domains and waits for them. Outlives its domains.
class Transport {
  public:
    virtual ~Transport() = default;
    virtual std::unique_ptr<Domain> Join(const std::string& name) = 0;
    /// Returns when Next(take) of one of the domains, or a blocked link, may have something new; at the
    /// deadline; or without a reason. Looks at least once, also when the deadline has passed.
    virtual void Wait(std::span<Domain* const> domains, Deadline deadline, Take take) = 0;
    /// The time, which stands in no relation to any other clock where the transport is simulated.
    virtual Clock::time_point Now() = 0;
    /// Lets the peers know that a send of this process waits and takes nothing in meanwhile: a number that is
    /// not 0, see Restraint; 0: none does.
    virtual void SayHeldUp(std::span<Domain* const> domains, std::uint64_t token) = 0;
    /// The machine and user that loss reports name where the peer was never met.
    virtual Peer Self() const = 0;
    /// A number that tells this process from others, most likely.
    virtual std::uint64_t Tag() const = 0;
};

}  // namespace zyl::backbone

#endif
