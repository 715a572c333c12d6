#ifndef ZYL_BACKBONE_LOCAL_INTAKE_H
#define ZYL_BACKBONE_LOCAL_INTAKE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Incoming.h"
#include "transport/Transport.h"

namespace zyl::backbone::local {

/// How often a process that has messages looks at what else there may be.
struct Pace {
    /// While other links have messages, polled lanes are looked at after so many of them.
    int messagesBetweenPolls = 16;
    /// A lane that was found empty so often meanwhile is watched: a bell costs its writer less than looks
    /// without end cost us.
    int emptyLooks = 64;
    /// After this many messages in a row the system is asked for news of the other links, so that a busy one
    /// hides none.
    int messagesBetweenLooks = 256;
    /// While messages come, it is seen after so many of them whether an end can be reported: with hundreds of
    /// dead senders that costs more than a message.
    int messagesBetweenReports = 64;
};

/// What the domain makes of what the links say.
class IntakeOwner {
  public:
    virtual ~IntakeOwner() = default;
    /// Both throw BadFrame.
    virtual void Greeted(Incoming& link, const Greeting& greeting) = 0;
    virtual void Announced(Incoming& link, const Announcement& announcement) = 0;
    /// The link has come to its end, or to a bad frame, and goes.
    virtual void Ended(const Incoming& link) = 0;
    virtual void Broken(const Incoming& link, const std::string& complaint) = 0;
    /// Whether a message of the link may be handed out now.
    virtual bool IsWanted(const Incoming& link, Take take) const = 0;
    virtual bool HasToWait(const Incoming& link) const = 0;
    virtual bool IsOver(const Incoming& link) const = 0;
};

/// The incoming links, and whose turn it is. All take turns in one queue, a message each, whether they have
/// a lane or not.
///
///   a link is             from where                          goes to
///   watched               ready: found empty, without lane;   ready: its channel has something, a bell
///                         polled: others had messages,        among it
///                         or this process goes to sleep
///   ready                 any                                 back of the queue: gave a message; watched,
///                                                             polled, awaits...: what the look found; gone
///   polled                ready: its lane was found empty     ready: its lane has news
///   awaits handler        ready: the next message is for an   ready: a handler came, everything is
///                         application without a handler       wanted, or its channel has something
///   awaits predecessor    ready: of a life that succeeds      ready: that end was reported
///                         another one under its name
///
/// A watched link with a lane has its bell asked for; no other one has.
class Intake {
  public:
    /// Both outlive this object.
    Intake(IntakeOwner& owner, const Pace& pace) : m_owner(owner), m_pace(pace) {}

    void Add(std::unique_ptr<Incoming> link);
    void MayBeRead(Incoming& link);

    /// The next message of the next link in turn that has one. With Take::kNothing: reads what the links say
    /// of themselves, and no message.
    std::optional<Message> Next(Take take);
    /// Whether Next may have something, as far as can be seen without a call of the system.
    bool HasNews(Take take);
    /// The same of the lanes that are looked at again and again.
    bool HasLaneNews(Take take);
    /// Asks for the bells of all polled links. False: there is news, and no sleep.
    bool FallAsleep();
    /// Gives back room in all lanes that nobody looks at any more.
    void GiveBack();

    /// The application has got a handler, or everything is wanted.
    void HandlerCame();
    /// The end of a life was reported: its successors need not wait any more.
    void PredecessorReported();
    /// A shortage may be over.
    void TryAgain();
    /// Looks at every link of the life, or of somebody who has not said who he is, until it is read to its
    /// end.
    void LookAtAll(const system::Identity& life);
    /// Whether something of the life is unread, or of somebody who has not said who he is.
    bool MayHaveUnread(const system::Identity& life) const;
    /// What is left of the life waits for a handler.
    void SetReported(const system::Identity& life);
    /// Somebody else has connected: who has done so before him may have said meanwhile who he is, and is
    /// heard first.
    void LookAtUngreeted();
    /// Whether somebody has connected before the link's opener, and could not be asked yet who he is.
    bool EarlierIsUnknown(const Incoming& link) const;
    /// Whether a connection of the life was accepted, and is still there.
    bool HasAccepted(const system::Identity& life) const;
    /// The same, where its end was not received yet.
    bool HasLinkOf(const system::Identity& life) const;
    /// The same, where its channel has ended, whatever is still to be received.
    bool HasEndedLinkOf(const system::Identity& life) const;
    /// Whether the entry's holder, and nobody who only says so, has an open link to this application of ours;
    /// none: to any one.
    bool HasLinkOf(const system::Entry& entry, std::optional<int> application) const;
    void SayHeldUp(std::uint64_t token);
    /// The link with a lane that a message last came from; null: none.
    Incoming* LastInLane() const { return m_lastInLane; }

  private:
    std::optional<Message> LookAt(Incoming& link, Take take);
    Message HandOut(Incoming& link, Incoming::Text& text);
    void Settle(Incoming& link, Incoming::Nothing nothing, Take take);
    std::optional<Message> ReadOn(Incoming& link, Take take);
    void SeeWhetherItIsKnown(Incoming& link);
    void SeeWhetherAllAreKnown();
    const std::vector<Incoming*>& LinksOf(const system::Identity& life) const;
    void LeaveTurn(Incoming& link);
    void MakeReady(Incoming& link);
    void PollLanes();
    void StopPolling(Incoming& link);
    void Remove(Incoming& link);
    void MakeAllReady(Incoming::Turn from);

    IntakeOwner& m_owner;
    const Pace& m_pace;
    std::vector<std::unique_ptr<Incoming>> m_links;
    std::deque<Incoming*> m_ready;
    std::vector<Incoming*> m_polled;
    /// Links that owe their writers room, or a block, because messages are still looked at.
    std::vector<Incoming*> m_owing;
    std::size_t m_awaitingHandler = 0;
    std::size_t m_awaitingPredecessor = 0;
    std::uint64_t m_accepted = 0;
    /// By their openers, in the order of their numbers: the links that were greeted.
    std::map<system::Identity, std::vector<Incoming*>> m_greeted;
    /// By their numbers: the links that were not greeted yet, or may have said more of themselves.
    std::map<std::uint64_t, Incoming*> m_unknown;
    /// Whether one of them may be read now.
    bool m_someUnread = false;
    int m_sincePoll = 0;
    Incoming* m_lastInLane = nullptr;
};

}  // namespace zyl::backbone::local

#endif
