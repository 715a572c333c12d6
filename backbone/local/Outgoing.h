#ifndef ZYL_BACKBONE_LOCAL_OUTGOING_H
#define ZYL_BACKBONE_LOCAL_OUTGOING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Blocks.h"
#include "Lane.h"
#include "LocalTransport.h"
#include "system/System.h"
#include "transport/Transport.h"

namespace zyl::backbone::local {

class Outgoing;

/// Is told what a link comes to that this process has opened.
class OutgoingOwner {
  public:
    virtual ~OutgoingOwner() = default;
    /// The link's channel has ended, or its peer follows no rules.
    virtual void Lost(const Outgoing& link) = 0;
    /// There is room, or a note has come.
    virtual void SendMayGetOn() = 0;
    /// Something is short: nobody tells when that is over.
    virtual void TryAgainSoon() = 0;
};

/// The sending end of a link: a channel that this process has opened to another application.
///
/// When it first sends a message it makes a lane, if that can be had and is wanted; without one its messages
/// are frames in the channel. Nothing overtakes anything: what goes over the channel is counted, and the
/// count lies beside the lane's position.
///
/// A link is open until its channel ends, its peer is known to be gone, or its peer sends what no peer of
/// this library sends. Then it is lost, and stays so.
class Outgoing final : public system::Watcher {
  public:
    /// `entry` is what the target's holder has written. All but the channel outlive this object.
    Outgoing(OutgoingOwner& owner, system::System& system, const LocalSettings& settings, KeptBlocks& kept,
             std::unique_ptr<system::Channel> channel, const system::Entry& entry, const Peer& peer);

    const Peer& To() const { return m_peer; }
    const system::Identity& Holder() const { return m_entry.identity; }
    bool Announced() const { return m_entry.announced; }
    /// A message in a lane costs less than a look at the channel, so that look is taken every few
    /// milliseconds.
    bool Alive();
    void* Reserve(const char* type, int size);
    Progress Commit();
    bool HasCarriedMessages() const { return !m_type.empty(); }
    std::uint64_t HeldUp() const { return m_heldUp; }
    /// Sends a whole control frame, now or before the next message.
    void SendControl(const std::string& frame);
    /// The peer is known to be gone.
    void SetLost() { m_lost = true; }

    void Ready(const system::Readiness& readiness) override;

    /// Whether a send that found no room in the lane may get on. True once for each.
    bool RoomHasCome() {
        const bool come = m_wantsLaneRoom && m_lane->HasRoom();
        m_wantsLaneRoom = m_wantsLaneRoom && !come;
        return come;
    }
    /// A shortage may be over.
    void TryAgain() {
        ReceiveNotes();
        SendBacklog();
    }
    /// Whether a control frame that is sent now may be read late: it finds no room, or lies behind messages.
    bool IsSlow() const { return !m_backlog.empty() || (m_lane == nullptr && HasCarriedMessages()); }
    LaneWriter* Lane() const { return m_lane.get(); }

  private:
    enum class LaneState { kUntried, kOpen, kNone };

    bool PrepareLane();
    void* ReserveInLane(std::size_t size);
    void* ReserveBlock(std::size_t size);
    void* ReserveFrame(std::size_t size);
    Progress CommitToLane();
    Progress CommitBlock();
    Progress CommitFrame();
    bool FrameIsPartlySent() const {
        return m_way == Way::kFrame && m_frameSent > 0 && m_frameSent < m_frameSize;
    }
    bool HandOver(Blocks::Block& block);
    void AwaitLaneRoom(bool wanted);
    void Publish();
    void Ring();
    void HandleFailure(system::Progress failure);
    void ReceiveNotes();
    void HandleNote(const Note& note);
    Progress SendBacklog();
    bool Send(const char* bytes, std::size_t size, std::size_t& sent);
    void Lose();
    void GiveUp(const char* reason);

    OutgoingOwner& m_owner;
    system::System& m_system;
    const LocalSettings& m_settings;
    std::unique_ptr<system::Channel> m_channel;
    system::Entry m_entry;
    Peer m_peer;
    bool m_lost = false;
    std::uint64_t m_heldUp = 0;
    system::Clock::time_point m_lastLook{};

    LaneState m_laneState = LaneState::kUntried;
    std::unique_ptr<LaneWriter> m_lane;
    bool m_wantsLaneRoom = false;
    Blocks m_blocks;

    /// Control frames, and how many there have been; those that the channel has not taken yet.
    std::uint64_t m_controls = 0;
    std::string m_backlog;
    std::size_t m_backlogSent = 0;

    /// The message under way: its type with its terminator, and where its body is.
    enum class Way { kLane, kBlock, kFrame };
    Way m_way = Way::kFrame;
    std::string m_type;
    std::size_t m_bodySize = 0;
    std::uint32_t m_block = 0;
    std::unique_ptr<char[]> m_frame;
    std::size_t m_capacity = 0;
    std::size_t m_frameSize = 0;
    std::size_t m_frameSent = 0;

    std::array<char, kNoteSize> m_note{};
    std::size_t m_noteSize = 0;
};

}  // namespace zyl::backbone::local

#endif
