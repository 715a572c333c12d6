#include "Incoming.h"

#include <fmt/format.h>

#include <cstring>
#include <utility>

namespace zyl::backbone::local {

namespace {

/// The memory of a frame that is not whole yet, and that of the next one.
constexpr std::size_t kMostWaiting = 2;

/// Notes answer what an opener does. One that reads none of them gets no more than these.
constexpr std::size_t kMostNotes = std::size_t{64} * 1024;

}  // namespace

/// A message in a block that was handed out.
struct Incoming::BlockUse final : MessageStorage {
    std::uint32_t number = 0;
    std::shared_ptr<system::Memory> memory;
    std::string type;
};

Incoming::Incoming(IncomingOwner& owner, const LaneShape& shape, std::size_t mostBlocks,
                   std::unique_ptr<system::Channel> channel)
    : m_owner(owner), m_shape(shape), m_mostBlocks(mostBlocks), m_channel(std::move(channel)) {
    m_channel->Watch(*this);
}

void Incoming::Ready(const system::Readiness& readiness) {
    if (readiness.room) {
        SendNotes();
    }
    if (readiness.end && m_greeted) {
        m_owner.ChannelEnded(m_opener);
    }
    if (readiness.input || readiness.end) {
        m_unread = true;
        m_owner.MayBeRead(*this);
    }
}

Incoming::Found Incoming::Next(Want want) {
    if (m_notes.size() > kMostNotes) {
        throw BadFrame(
            fmt::format("it does not read the {} bytes of notes that it was sent", m_notes.size()));
    }
    for (;;) {
        if (m_unread || !m_frames.IsEmpty()) {
            if (std::optional<Found> found = TakeControl()) {
                return std::move(*found);
            }
        }
        const bool inLane = HasLaneNews();
        const bool behindControls = inLane && m_lanes.size() == 1 && m_lanes.front()->Controls() > m_controls;
        if (behindControls) {
            m_unread = true;
            if (Receive()) {
                continue;
            }
            if (m_unread && !m_ended) {
                return Nothing::kEmpty;  // for want of something; it is tried again
            }
            throw BadFrame(fmt::format("the lane speaks of {} control frames, of which {} came",
                                       m_lanes.front()->Controls(), m_controls));
        }
        if (inLane && want == Want::kNoMessage) {
            return Nothing::kHeld;
        }
        if (inLane) {
            if (std::optional<LaneMessage> message = TakeFromLane(want)) {
                return Text{message->type, message->body, std::move(message->storage)};
            }
            continue;  // nothing but the end of the ring
        }
        if (m_lanes.size() > 1) {
            m_lanes.erase(m_lanes.begin());
            continue;
        }
        if (m_frames.NextKind() == FrameKind::kMessage && want == Want::kNoMessage) {
            return Nothing::kHeld;
        }
        if (std::optional<FrameView> frame = m_frames.Next()) {
            return Text{frame->type, frame->body, std::move(frame->storage)};
        }
        const bool lookedAfterEnd = m_ended;  // the lane is read to its end only after that of the channel
        if (!Receive() && m_ended == lookedAfterEnd) {
            return m_ended ? Nothing::kEnded : Nothing::kEmpty;
        }
    }
}

/// Reads what stands before the next message. A message that is not whole yet is no reason to read on.
std::optional<Incoming::Found> Incoming::TakeControl() {
    do {
        const std::optional<FrameKind> kind = m_frames.NextKind();
        if (!m_greeted && kind && *kind != FrameKind::kGreeting) {
            throw BadFrame("the first frame is no greeting");
        }
        if (kind == FrameKind::kMessage) {
            m_short = false;  // what is behind it is heard of when it goes
            return std::nullopt;
        }
        if (const std::optional<FrameView> frame = m_frames.Next()) {
            Found found = HandleControl(*frame);
            if (!std::holds_alternative<Nothing>(found)) {
                return found;
            }
            continue;
        }
        if (!Receive()) {
            return std::nullopt;
        }
    } while (true);
}

/// True when there are new bytes.
bool Incoming::Receive() {
    if (!m_unread || m_ended) {
        return false;
    }
    const std::span<char> room = m_frames.Room();
    const system::Moved moved = m_channel->Receive(room);
    m_short = moved.progress == system::Progress::kShortage;
    switch (moved.progress) {
        case system::Progress::kSome:
            m_frames.Received(moved.bytes);
            if (m_channel->Waiting() > kMostWaiting) {
                throw BadFrame(
                    fmt::format("{} descriptors come that no frame speaks of", m_channel->Waiting()));
            }
            return true;
        case system::Progress::kNotNow:
            m_unread = false;
            m_frames.Rest();
            break;
        case system::Progress::kEnded:
            m_ended = true;
            break;
        case system::Progress::kShortage:
            m_owner.TryAgainSoon();
            break;
    }
    return false;
}

Incoming::Found Incoming::HandleControl(const FrameView& frame) {
    ++m_controls;
    switch (frame.kind) {
        case FrameKind::kGreeting: {
            if (std::exchange(m_greeted, true)) {
                throw BadFrame("a second greeting");
            }
            Greeting greeting = ReadGreeting(frame.body);
            m_opener = greeting.identity;
            m_peer = {greeting.application, greeting.pid, greeting.host, greeting.user};
            return greeting;
        }
        case FrameKind::kAnnounce:
            return ReadAnnouncement(frame.body);
        case FrameKind::kLane:
            OpenLane(frame);
            break;
        case FrameKind::kBlock:
            OpenBlock(frame);
            break;
        case FrameKind::kDropBlock:
            m_blocks.erase(ReadDropBlock(frame.body));
            break;
        case FrameKind::kMessage:
            break;
    }
    return Nothing::kEmpty;
}

std::unique_ptr<system::Memory> Incoming::TakeMemory(std::size_t size, const char* what) {
    system::Channel::Arrival arrival = m_channel->TakeMemory();
    if (arrival.memory == nullptr) {
        throw BadFrame(fmt::format("{} for its messages cannot be opened: {}", what, arrival.problem));
    }
    if (arrival.memory->Bytes().size() != size) {
        throw BadFrame(
            fmt::format("{} has {} bytes instead of {}", what, arrival.memory->Bytes().size(), size));
    }
    return std::move(arrival.memory);
}

void Incoming::OpenLane(const FrameView& frame) {
    const std::uint32_t ring = ReadLane(frame.body);
    if (ring != m_shape.ring || m_lanes.size() > 2) {
        throw BadFrame(fmt::format("a lane with a ring of {} bytes, behind {} others", ring, m_lanes.size()));
    }
    m_lanes.push_back(std::make_unique<LaneReader>(TakeMemory(m_shape.Memory(), "a lane"), m_shape));
    m_controls = 0;
}

void Incoming::OpenBlock(const FrameView& frame) {
    const BlockNotice notice = ReadBlock(frame.body);
    if (m_blocks.size() >= m_mostBlocks || m_blocks.contains(notice.number)) {
        throw BadFrame(fmt::format("block {} comes beside {} others", notice.number, m_blocks.size()));
    }
    m_blocks[notice.number] = TakeMemory(notice.size, "a block");
}

std::optional<LaneMessage> Incoming::TakeFromLane(Want want) {
    LaneReader& lane = *m_lanes.front();
    std::optional<LaneMessage> message = lane.Take();
    if (lane.WriterWaits()) {
        SendNote({NoteKind::kRoom});
    }
    if (message && message->inBlock) {
        TakeBlock(*message, want);
    } else if (message && want == Want::kOwnCopy) {
        message = message->Copy();
    }
    return message;
}

/// Has the message stand in the block and keep that, and nothing of the lane.
void Incoming::TakeBlock(LaneMessage& message, Want want) {
    const auto block = m_blocks.find(message.block);
    if (block == m_blocks.end() || message.sizeInBlock > block->second->Bytes().size()) {
        throw BadFrame(fmt::format("a message of {} bytes in block {}, which does not hold it",
                                   message.sizeInBlock, message.block));
    }
    auto use = std::make_shared<BlockUse>();
    use->number = message.block;
    use->memory = block->second;
    use->type = message.type;
    if (want == Want::kOwnCopy) {
        m_blocks.erase(block);
        SendNote({NoteKind::kBlockKept, use->number});
    } else {
        m_inUse.push_back(use);
    }
    message.type = use->type.c_str();
    message.body = use->memory->Bytes().first(message.sizeInBlock);
    message.storage = std::move(use);
}

bool Incoming::GiveBack() {
    ReturnBlocks();
    if (m_lanes.empty()) {
        return false;
    }
    LaneReader& lane = *m_lanes.front();
    lane.GiveBack();
    if (lane.WriterWaits()) {
        SendNote({NoteKind::kRoom});
    }
    if (m_lanes.size() == 1 && lane.NeedsAnother()) {
        SendNote({NoteKind::kNewLane});
    }
    return lane.OwesRoom();
}

/// A block that is still looked at, by a handler that waits or in a message that was taken in, is kept: the
/// sender could not go on without it.
void Incoming::ReturnBlocks() {
    for (const std::shared_ptr<BlockUse>& use : std::exchange(m_inUse, {})) {
        const bool over = use.use_count() == 1;
        if (!over) {
            m_blocks.erase(use->number);
        }
        SendNote({over ? NoteKind::kBlockFree : NoteKind::kBlockKept, use->number});
    }
}

void Incoming::Awake() {
    if (!m_lanes.empty()) {
        m_lanes.front()->Awake();
    }
}

void Incoming::SayHeldUp(std::uint64_t token) {
    m_heldUp = token;
    SendNotes();
}

void Incoming::SendNote(const Note& note) {
    AppendNote(m_notes, note);
    SendNotes();
}

/// Of what is said about being held up only the last word counts, and it comes last.
void Incoming::SendNotes() {
    for (;;) {
        if (m_notesSent == m_notes.size()) {
            m_notes.clear();
            m_notesSent = 0;
            if (m_heldUp == m_heldUpSaid) {
                return;
            }
            m_heldUpSaid = m_heldUp;
            AppendNote(m_notes, {NoteKind::kHeldUp, m_heldUp});
        }
        const system::Moved moved = m_channel->Send(std::span(m_notes).subspan(m_notesSent));
        switch (moved.progress) {
            case system::Progress::kSome:
                m_notesSent += moved.bytes;
                break;
            case system::Progress::kEnded:
                m_notesSent = m_notes.size();
                break;
            case system::Progress::kShortage:
                m_owner.TryAgainSoon();
                return;
            case system::Progress::kNotNow:
                return;
        }
    }
}

}  // namespace zyl::backbone::local
