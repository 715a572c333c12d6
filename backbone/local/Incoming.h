#ifndef ZYL_BACKBONE_LOCAL_INCOMING_H
#define ZYL_BACKBONE_LOCAL_INCOMING_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "FrameReader.h"
#include "Lane.h"
#include "system/System.h"
#include "transport/Transport.h"

namespace zyl::backbone::local {

class Incoming;

/// Is told when there may be something to read, or the end has come.
class IncomingOwner {
  public:
    virtual ~IncomingOwner() = default;
    virtual void MayBeRead(Incoming& link) = 0;
    /// The channel's end was seen, whatever is unread.
    virtual void ChannelEnded(const system::Identity& opener) = 0;
    /// Something is short: nobody tells when that is over.
    virtual void TryAgainSoon() = 0;
};

/// The receiving end of a link: a channel that this process has accepted.
///
/// What comes over the channel is read before what the lane holds, except messages, which come after it. So
/// everything is handed out in the order in which it was sent.
class Incoming final : public system::Watcher {
  public:
    /// `owner` outlives this object.
    Incoming(IncomingOwner& owner, const LaneShape& shape, std::size_t mostBlocks,
             std::unique_ptr<system::Channel> channel);

    /// Whose turn it is: see Intake.
    enum class Turn {
        kWatched,           ///< nothing is known to be there; the channel, or a bell, tells when there is
        kReady,             ///< to be looked at in its turn
        kPolled,            ///< a lane that was found empty a moment ago, and is looked at again and again
        kAwaitsHandler,     ///< its next message is for an application without a handler
        kAwaitsPredecessor  ///< it is of a life whose predecessor's end is still to be reported
    };
    Turn turn = Turn::kWatched;
    /// How many were accepted before it.
    std::uint64_t number = 0;
    /// The opener's process number, as the system tells it.
    int pid = 0;
    /// Looks that found the lane empty while others had messages.
    int emptyLooks = 0;

    /// What a look at the link finds.
    struct Text {
        const char* type;
        std::span<const char> body;
        std::shared_ptr<const MessageStorage> storage;
    };
    enum class Nothing {
        kHeld,   ///< the next thing is a message, and none is wanted
        kEmpty,  ///< nothing more until the owner is told, or the lane has news
        kEnded   ///< nothing more at all
    };
    using Found = std::variant<Nothing, Greeting, Announcement, Text>;
    enum class Want {
        kNoMessage,
        kMessage,
        kOwnCopy  ///< a message that keeps nothing of the link: it may lie about for long
    };
    /// The next thing. Throws BadFrame, and std::bad_alloc for a message that there is no memory for; the
    /// link is of no use any more then.
    Found Next(Want want);

    void Ready(const system::Readiness& readiness) override;
    /// Looks at the channel again, though nothing was told of it.
    void LookAgain() { m_unread = true; }
    /// Whether the channel may have something: it was not read until it had nothing, most often for want of
    /// something.
    bool Unread() const { return m_unread && !m_ended; }
    /// Whether something that it says of itself may be unread.
    bool MayBeUnknown() const { return m_short || (!m_greeted && Unread()); }

    /// Whether the end of the channel was received.
    bool HasEnded() const { return m_ended; }

    /// Whether the channel has ended, whatever is still to be received.
    bool ChannelHasEnded() { return m_ended || m_channel->HasEnded(); }

    bool HasLaneNews() { return !m_lanes.empty() && m_lanes.front()->HasNews(); }
    bool HasLane() const { return !m_lanes.empty(); }
    LaneReader* Lane() { return m_lanes.empty() ? nullptr : m_lanes.front().get(); }
    /// The two halves of going to sleep; a StoreLoadFence and HasLaneNews belong between them.
    void Asleep() { m_lanes.front()->Asleep(); }
    void Awake();

    /// Gives room back that nobody looks at any more, and is done with all blocks. True while there is more
    /// room to give back.
    bool GiveBack();
    /// A shortage may be over.
    void TryAgain() { SendNotes(); }
    /// See Transport::SayHeldUp.
    void SayHeldUp(std::uint64_t token);

    bool Greeted() const { return m_greeted; }
    const system::Identity& Opener() const { return m_opener; }
    /// The opener, but for its application.
    const Peer& OpenedBy() const { return m_peer; }
    /// The application of this process that the link leads to, once it is greeted: its number.
    int application = -1;
    /// How many announcements it has brought.
    std::size_t announcements = 0;
    /// The end of the opener's life was reported: what is left are messages that wait for a handler.
    bool lifeReported = false;

  private:
    struct BlockUse;

    bool Receive();
    std::optional<Found> TakeControl();
    Found HandleControl(const FrameView& frame);
    void OpenLane(const FrameView& frame);
    void OpenBlock(const FrameView& frame);
    std::unique_ptr<system::Memory> TakeMemory(std::size_t size, const char* what);
    std::optional<LaneMessage> TakeFromLane(Want want);
    void TakeBlock(LaneMessage& message, Want want);
    void ReturnBlocks();
    void SendNote(const Note& note);
    void SendNotes();

    IncomingOwner& m_owner;
    LaneShape m_shape;
    std::size_t m_mostBlocks;
    std::unique_ptr<system::Channel> m_channel;
    FrameReader m_frames;
    bool m_unread = true;
    /// The channel could not be read for want of something.
    bool m_short = false;
    bool m_ended = false;

    bool m_greeted = false;
    system::Identity m_opener;
    Peer m_peer;

    /// The lane, and others that take its place one after the other when it is read to its end.
    std::vector<std::unique_ptr<LaneReader>> m_lanes;
    /// Control frames that were read since the last of them was opened.
    std::uint64_t m_controls = 0;

    std::map<std::uint32_t, std::shared_ptr<system::Memory>> m_blocks;
    /// Blocks with a message that may still be looked at.
    std::vector<std::shared_ptr<BlockUse>> m_inUse;

    std::string m_notes;
    std::size_t m_notesSent = 0;
    std::uint64_t m_heldUp = 0;
    std::uint64_t m_heldUpSaid = 0;
};

}  // namespace zyl::backbone::local

#endif
