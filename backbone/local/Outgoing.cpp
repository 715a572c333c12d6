#include "Outgoing.h"

#include <fmt/format.h>

#include <cstring>
#include <utility>

#include "Diagnostics.h"

namespace zyl::backbone::local {

namespace {

/// A frame's buffer is kept for the next one up to this size.
constexpr std::size_t kKeptFrame = std::size_t{1024} * 1024;

}  // namespace

Outgoing::Outgoing(OutgoingOwner& owner, system::System& system, const LocalSettings& settings,
                   KeptBlocks& kept, std::unique_ptr<system::Channel> channel, const system::Entry& entry,
                   const Peer& peer)
    : m_owner(owner),
      m_system(system),
      m_settings(settings),
      m_channel(std::move(channel)),
      m_entry(entry),
      m_peer(peer),
      m_laneState(settings.lanes ? LaneState::kUntried : LaneState::kNone),
      m_blocks(system, kept, settings.limits.blocks) {
    m_channel->Watch(*this);
}

void Outgoing::Ready(const system::Readiness& readiness) {
    m_owner.SendMayGetOn();
    if (readiness.input) {
        ReceiveNotes();
    }
    if (readiness.end) {
        Lose();
    }
    if (readiness.room && !m_lost) {
        SendBacklog();
    }
}

void Outgoing::Lose() {
    if (!std::exchange(m_lost, true)) {
        m_owner.Lost(*this);
    }
}

void Outgoing::GiveUp(const char* reason) {
    Report(fmt::format("the link to application {} is given up: {}", Quoted(m_peer.application), reason));
    Lose();
}

bool Outgoing::Alive() {
    if (m_lost) {
        return false;
    }
    const system::Clock::time_point now =
        m_lane != nullptr ? m_system.RoughlyNow() : system::Clock::time_point{};
    if (m_lane == nullptr || now != m_lastLook) {
        m_lastLook = now;
        if (m_channel->HasEnded()) {
            Lose();
        }
    }
    return !m_lost;
}

/// A send that ended with an exception may have left part of a frame: the rest of it comes first.
void* Outgoing::Reserve(const char* type, int size) {
    if (FrameIsPartlySent() && CommitFrame() != Progress::kDone) {
        return nullptr;
    }
    if (m_lost || SendBacklog() != Progress::kDone || !PrepareLane()) {
        return nullptr;
    }
    m_type.assign(type, std::strlen(type) + 1);
    m_bodySize = static_cast<std::size_t>(size);
    if (m_lane == nullptr) {
        m_way = Way::kFrame;
        return ReserveFrame(m_bodySize);
    }
    try {
        if (m_lane->Fits(m_type.size(), m_bodySize)) {
            m_way = Way::kLane;
            return ReserveInLane(m_bodySize);
        }
        m_way = Way::kBlock;
        return ReserveBlock(m_bodySize);
    } catch (const BadFrame& bad) {
        GiveUp(bad.what());
        return nullptr;
    }
}

/// False while it cannot be decided whether there is a lane: what was sent before is still on its way.
bool Outgoing::PrepareLane() {
    if (m_laneState != LaneState::kUntried) {
        return true;
    }
    std::shared_ptr<system::Memory> memory = m_system.MakeMemory(m_settings.limits.lane.Memory());
    m_laneState = LaneState::kNone;
    m_wantsLaneRoom = false;
    m_lane.reset();
    if (memory == nullptr) {
        return true;
    }
    const std::string frame = LaneFrame(static_cast<std::uint32_t>(m_settings.limits.lane.ring));
    const system::Moved sent = m_channel->SendWithMemory(frame, *memory);
    if (sent.progress == system::Progress::kNotNow) {
        m_laneState = LaneState::kUntried;
        return false;
    }
    if (sent.progress == system::Progress::kSome) {
        m_lane = std::make_unique<LaneWriter>(std::move(memory), m_settings.limits.lane);
        m_laneState = LaneState::kOpen;
        m_controls = 0;
        m_backlog += frame.substr(sent.bytes);
    }
    return SendBacklog() == Progress::kDone;
}

void* Outgoing::ReserveInLane(std::size_t size) {
    void* room = m_lane->Reserve(m_type.data(), m_type.size(), size);
    AwaitLaneRoom(room == nullptr);
    return room;
}

void Outgoing::AwaitLaneRoom(bool wanted) {
    m_wantsLaneRoom = wanted;
    if (wanted && m_lane->ReaderNeedsBell()) {
        Ring();
    }
}

/// Without memory for a block the message is a frame, and the next one tries anew with another lane.
void* Outgoing::ReserveBlock(std::size_t size) {
    std::vector<std::uint32_t> dropped;
    const std::optional<Blocks::Block*> block = m_blocks.Reserve(size + kGuardSize, dropped);
    for (const std::uint32_t number : dropped) {
        SendControl(DropBlockFrame(number));
    }
    if (!block) {
        m_lane.reset();
        m_laneState = LaneState::kUntried;
        m_way = Way::kFrame;
        return ReserveFrame(size);
    }
    if (*block == nullptr) {
        return nullptr;
    }
    m_block = (*block)->number;
    return (*block)->memory->Bytes().data();
}

void* Outgoing::ReserveFrame(std::size_t size) {
    m_frameSize = kFrameHeaderSize + m_type.size() + size;
    m_frameSent = 0;
    if (m_frameSize + kGuardSize > m_capacity) {
        m_frame.reset();
        m_capacity = 0;
        m_frame = std::make_unique_for_overwrite<char[]>(m_frameSize + kGuardSize);
        m_capacity = m_frameSize + kGuardSize;
    }
    WriteFrameHeader(m_frame.get(), {FrameKind::kMessage, static_cast<std::uint16_t>(m_type.size()),
                                     static_cast<std::uint32_t>(size)});
    std::memcpy(m_frame.get() + kFrameHeaderSize, m_type.data(), m_type.size());
    return m_frame.get() + kFrameHeaderSize + m_type.size();
}

Progress Outgoing::Commit() {
    if (m_lost) {
        return Progress::kLost;
    }
    try {
        switch (m_way) {
            case Way::kLane:
                return CommitToLane();
            case Way::kBlock:
                return CommitBlock();
            case Way::kFrame:
                break;
        }
    } catch (const BadFrame& bad) {
        GiveUp(bad.what());
        return Progress::kLost;
    }
    return CommitFrame();
}

Progress Outgoing::CommitToLane() {
    Publish();
    return Progress::kDone;
}

Progress Outgoing::CommitBlock() {
    if (SendBacklog() != Progress::kDone || !PrepareLane()) {
        return m_lost ? Progress::kLost : Progress::kBlocked;
    }
    Blocks::Block& block = m_blocks.At(m_block);
    if (m_lane == nullptr) {
        std::memcpy(ReserveFrame(m_bodySize), block.memory->Bytes().data(), m_bodySize);
        m_way = Way::kFrame;
        return CommitFrame();
    }
    if (block.state == Blocks::Block::State::kNew && !HandOver(block)) {
        return m_lost ? Progress::kLost : Progress::kBlocked;
    }
    AwaitLaneRoom(!m_lane->ReserveForBlock(m_type.data(), m_type.size(), m_bodySize, m_block));
    if (m_wantsLaneRoom) {
        return Progress::kBlocked;
    }
    m_blocks.Use(block);
    Publish();
    return Progress::kDone;
}

bool Outgoing::HandOver(Blocks::Block& block) {
    const std::string frame = BlockFrame({block.number, block.memory->Bytes().size()});
    const system::Moved sent = m_channel->SendWithMemory(frame, *block.memory);
    if (sent.progress != system::Progress::kSome) {
        HandleFailure(sent.progress);
        return false;
    }
    ++m_controls;
    m_backlog += frame.substr(sent.bytes);
    m_blocks.HandedOver(block);
    return SendBacklog() == Progress::kDone;
}

/// From here on the message may be read, whatever the bell finds.
void Outgoing::Publish() {
    if (m_lane->Publish(m_controls)) {
        Ring();
    }
}

/// The reader has drained the channel before it went to sleep. So if the channel is full now, what fills it
/// wakes the reader as well as a bell.
void Outgoing::Ring() {
    m_backlog += kBell;
    SendBacklog();
}

Progress Outgoing::CommitFrame() {
    const Progress backlog = SendBacklog();
    if (backlog != Progress::kDone) {
        return backlog;
    }
    if (!Send(m_frame.get(), m_frameSize, m_frameSent)) {
        return Progress::kLost;
    }
    if (m_frameSent < m_frameSize) {
        return Progress::kBlocked;
    }
    if (m_capacity > kKeptFrame) {
        m_frame.reset();
        m_capacity = 0;
    }
    SendBacklog();  // what had to wait for the end of this frame
    return Progress::kDone;
}

void Outgoing::SendControl(const std::string& frame) {
    ++m_controls;
    m_backlog += frame;
    SendBacklog();
}

/// Between two frames only: a message that is partly sent comes first.
Progress Outgoing::SendBacklog() {
    if (FrameIsPartlySent()) {
        return Progress::kDone;
    }
    if (!Send(m_backlog.data(), m_backlog.size(), m_backlogSent)) {
        return Progress::kLost;
    }
    if (m_backlogSent < m_backlog.size()) {
        return Progress::kBlocked;
    }
    m_backlog.clear();
    m_backlogSent = 0;
    return Progress::kDone;
}

/// Sends what the channel takes of the bytes from `sent` on. False when the peer is gone.
bool Outgoing::Send(const char* bytes, std::size_t size, std::size_t& sent) {
    while (sent < size && !m_lost) {
        const system::Moved moved = m_channel->Send({bytes + sent, size - sent});
        if (moved.progress != system::Progress::kSome) {
            HandleFailure(moved.progress);
            break;
        }
        sent += moved.bytes;
    }
    return !m_lost;
}

void Outgoing::HandleFailure(system::Progress failure) {
    if (failure == system::Progress::kEnded) {
        Lose();
    } else if (failure == system::Progress::kShortage) {
        m_owner.TryAgainSoon();
    }
}

void Outgoing::ReceiveNotes() {
    while (!m_lost) {
        const system::Moved moved = m_channel->Receive(std::span(m_note).subspan(m_noteSize));
        if (moved.progress != system::Progress::kSome) {
            HandleFailure(moved.progress);
            return;
        }
        m_noteSize += moved.bytes;
        try {
            if (m_channel->Waiting() > 0) {
                throw BadFrame("the listener sent descriptors");
            }
            if (m_noteSize == kNoteSize) {
                m_noteSize = 0;
                HandleNote(ReadNote(m_note.data()));
            }
        } catch (const BadFrame& bad) {
            GiveUp(bad.what());
        }
    }
}

void Outgoing::HandleNote(const Note& note) {
    const auto number = static_cast<std::uint32_t>(note.value);
    switch (note.kind) {
        case NoteKind::kRoom:
            break;  // it ends the wait, which is all
        case NoteKind::kBlockFree:
            if (m_blocks.Free(number)) {
                SendControl(DropBlockFrame(number));
            }
            break;
        case NoteKind::kBlockKept:
            m_blocks.Keep(number);
            break;
        case NoteKind::kNewLane:
            m_laneState = m_settings.lanes ? LaneState::kUntried : LaneState::kNone;
            break;
        case NoteKind::kHeldUp:
            m_heldUp = note.value;
            break;
    }
}

}  // namespace zyl::backbone::local
