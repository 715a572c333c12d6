#ifndef ZYL_BACKBONE_LOCAL_LANE_H
#define ZYL_BACKBONE_LOCAL_LANE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "Frame.h"
#include "SharedMemory.h"
#include "transport/Transport.h"

/// A lane carries a link's messages through shared memory: a ring of bytes with one writer and one reader. A
/// message is streamed straight into the ring and handed to the receiver where it lies.
///
/// The memory is a page with the two positions, then the ring, which is mapped twice in a row so that nothing
/// ever wraps. A position counts bytes since the lane was made. The writer's position is published after a
/// record is complete: a writer that dies in the middle of one leaves nothing to be seen.
///
///   record    offset  bytes  field
///             0       4      kind: 1 a whole message, 2 the first piece of one, 3 a further piece
///             4       4      t: bytes of the type, its NUL terminator included; 0 in a further piece
///             8       4      b: offset of the body in the record, a multiple of 8
///             12      4      n: bytes of the body in this record
///             16      4      bytes of the body of the whole message
///             20      4      zero
///             24      t      type
///             b       n      body; the next record begins at the next multiple of 64
///
/// Bodies of 512 bytes and more start on 64-byte boundaries, large ones on pages: copies between buffers that
/// lie a few bytes apart modulo a page are slow on some processors. Smaller ones follow their type, as each
/// cache line that need not pass between the processors counts there. What the other side may write is
/// checked on every use.

namespace zyl::backbone::local {

/// The ring holds some dozen large messages. In a smaller one the reader's second cache keeps the lines from
/// which the writer wants them back, which costs more than bytes that come from the third.
constexpr std::size_t kRingSize = std::size_t{2} * 1024 * 1024;
constexpr std::size_t kLaneMemory = kPageSize + kRingSize;

/// The least room that is worth telling the writer of: a fraction of the ring, so that a writer faster than
/// its reader goes on while the reader is at its next message.
constexpr std::size_t kRoomStep = std::size_t{64} * 1024;

/// Longer messages travel in pieces, so that several records are always under way.
constexpr std::size_t kLongestRecord = kRingSize / 4;

/// The positions, each on a cache line of its own. Shared with a process that may write anything.
struct LanePositions {
    alignas(64) std::atomic<std::uint64_t> written;
    alignas(64) std::atomic<std::uint64_t> read;
    /// The writer is held up until there is room. It alone changes this: a reader that took the word back
    /// could take back the next one, too, which it has not answered.
    alignas(64) std::atomic<std::uint32_t> roomWanted;
};

/// The writing end. Used like a Link: Reserve, fill, Commit until it is done.
class LaneWriter {
  public:
    explicit LaneWriter(Mapping mapping);

    /// Null when there is no room now. Throws BadFrame when the reader's position makes no sense.
    void* Reserve(const char* type, std::size_t size);
    /// kDone when the whole message is in the ring. Throws BadFrame.
    Progress Commit();
    /// Whether Reserve or Commit may get on after having been held up.
    bool HasRoom() const;

  private:
    bool MakeRoom(std::size_t size);
    void SetRoomWanted(bool wanted);
    void Refresh();
    void Publish(std::size_t recordSize);
    bool CommitPiece();
    LanePositions& Positions() const { return *reinterpret_cast<LanePositions*>(m_mapping.Head()); }
    char* At(std::uint64_t position) const { return m_mapping.Tail() + position % kRingSize; }

    Mapping m_mapping;
    std::uint64_t m_written = 0;
    std::uint64_t m_read = 0;
    std::uint64_t m_heldUpAt = 0;
    bool m_wantsRoom = false;
    std::size_t m_recordSize = 0;
    /// A message that travels in pieces: its type and body, and how much of the body is in the ring.
    std::vector<char> m_type;
    std::unique_ptr<char[]> m_body;
    std::size_t m_bodySize = 0;
    std::size_t m_bodySent = 0;
    bool m_inPieces = false;
};

/// A message as a lane hands it out: a view of the ring for as long as `storage` is held alone.
struct LaneMessage {
    const char* type;
    std::span<const char> body;
    std::shared_ptr<const MessageStorage> storage;

    /// The same message in memory of its own: out of the ring, which others need.
    LaneMessage Copy() const;
};

/// The reading end.
///
/// A message is viewed in the ring until its storage is let go. If another one is taken before that (from a
/// nested loop, or by a send that waits for room) the held one first gets private pages with its bytes, at
/// its addresses; so a handler that does not return never holds the ring up. Where the
/// memory cannot be mapped a second time, as that takes, messages are copies. Room is given back in steps,
/// and by GiveBack.
class LaneReader {
  public:
    explicit LaneReader(Mapping mapping);
    ~LaneReader();

    bool HasNews() { return m_seen != m_next || Refresh(); }
    /// The next whole message, if there is one. Throws BadFrame, and std::bad_alloc for one that has no
    /// place.
    std::optional<LaneMessage> Take();
    /// Gives back all room that is free.
    void GiveBack();
    /// Whether room was given back since the last call while the writer wanted some: it is to be woken.
    bool WriterWaits() { return std::exchange(m_writerWaits, false); }

  private:
    struct View;
    struct Record;

    bool Refresh();
    Record NextRecord() const;
    void LetGo();
    void GiveBackInSteps();
    void Assemble(const Record& record);
    LanePositions& Positions() const { return *reinterpret_cast<LanePositions*>(m_mapping.Head()); }
    const char* At(std::uint64_t position) const { return m_mapping.Tail() + position % kRingSize; }

    Mapping m_mapping;
    /// The writer's position as last seen. Looked at anew when all before it is taken: each look costs the
    /// writer its cache line.
    std::uint64_t m_seen = 0;
    std::uint64_t m_next = 0;
    std::uint64_t m_free = 0;
    std::uint64_t m_givenBack = 0;
    std::shared_ptr<View> m_view;
    bool m_canView;
    std::span<const char> m_viewed;
    std::shared_ptr<View> m_assembly;
    std::size_t m_assembled = 0;
    std::size_t m_assemblySize = 0;
    bool m_writerWaits = false;
};

}  // namespace zyl::backbone::local

#endif
