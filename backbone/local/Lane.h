#ifndef ZYL_BACKBONE_LOCAL_LANE_H
#define ZYL_BACKBONE_LOCAL_LANE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Frame.h"
#include "SharedWord.h"
#include "system/System.h"
#include "transport/Transport.h"

/// A lane carries a link's messages through shared memory: a ring of bytes with one writer and one reader. A
/// message is streamed straight into the ring and handed to the receiver where it lies.
///
/// The memory is a head with positions and flags, then the ring. A position counts bytes since the lane was
/// made. The writer's position is published after a record is complete: a writer that dies in the middle of
/// one leaves nothing to be seen.
///
///   record    offset  bytes  field
///             0       4      kind: 1 a message, 2 a message whose body is in a block, 3 nothing
///             4       4      t: bytes of the type, its NUL terminator included; 0 in nothing
///             8       4      b: offset of the body in the record, a multiple of 8
///             12      4      n: bytes of the body in this record
///             16      4      bytes of the body in the block
///             20      4      the block's number
///             24      t      type
///             b       n      body; the next record begins at the next multiple of 64
///
/// A record lies in one piece: where it would run over the ring's end, "nothing" fills the rest. Bodies of
/// 512 bytes and more start on cache lines, large ones on pages, which avoids 4K aliasing between the two
/// ends of a copy. Smaller ones follow their type, as each cache line that need not pass between the
/// processors counts there. What the other side may write is checked on every use.
///
/// Each word in the head is written by one side alone, and how the two wake each other is the same in both
/// directions:
///
///   the writer has news             the reader goes to sleep
///     writes the record               1. Sleeps = a number not used before
///     1. Written = its end            2. store-load fence
///     2. store-load fence             3. looks at Written: nothing new, so it sleeps
///     3. looks at Sleeps: not 0,
///        so it sends a bell
///
///   the reader gives room back      the writer wants room
///     1. Read = up to where           1. Wanted = where Read must be
///     2. store-load fence             2. store-load fence
///     3. looks at Wanted: reached,    3. looks at Read: not there yet, so it sleeps; and at
///        so it sends a note              Sleeps: not 0, so it sends a bell before that
///
/// So one of the two always sees the other, and a reader that sleeps on room which it cannot give back learns
/// that the room is wanted. Either looks at a number once only: a bell is sent once for each
/// sleep, a note once for each want.

namespace zyl::backbone::local {

constexpr std::size_t kCacheLine = 64;
constexpr std::size_t kLaneHead = 4096;

/// The sizes of a lane; `ring` is a power of two of four cache lines or more.
struct LaneShape {
    std::size_t ring = 0;
    /// The least room that is given back while messages come.
    std::size_t roomStep = 0;

    std::size_t Memory() const { return kLaneHead + ring; }
    /// With records of a quarter, several are always under way, and one fits into any ring that is read to
    /// its end, wherever it ended.
    std::size_t LongestRecord() const { return ring / 4; }
    /// Where a position lies in the ring.
    std::size_t Offset(std::uint64_t position) const { return position & (ring - 1); }
};

struct LaneHead {
    /// By the writer: its position, and how many of its control frames must be read before what lies there.
    alignas(kCacheLine) SharedWord written;
    SharedWord controls;
    /// By the writer, seldom.
    alignas(kCacheLine) SharedWord wanted;
    SharedWord writersProcessor;  ///< plus 1; 0: unknown
    /// By the reader.
    alignas(kCacheLine) SharedWord read;
    /// By the reader, seldom.
    alignas(kCacheLine) SharedWord sleeps;
    SharedWord readersProcessor;  ///< plus 1; 0: unknown
};
static_assert(sizeof(LaneHead) <= kLaneHead);

/// Prepares the memory of a lane that is used for the first time: as much again as was used so far, so that a
/// lane which carries little stays small. Both ends do so, each in its own mapping.
class RingGrowth {
  public:
    /// The end is at `position` now.
    void Reached(std::uint64_t position, system::Memory& memory, std::size_t ring) {
        if (m_prepared < ring && position + kPage > m_prepared) {
            Grow(position, memory, ring);
        }
    }

  private:
    static constexpr std::size_t kPage = 4096;
    void Grow(std::uint64_t position, system::Memory& memory, std::size_t ring);

    std::size_t m_prepared = 0;
};

/// The writing end.
class LaneWriter {
  public:
    LaneWriter(std::shared_ptr<system::Memory> memory, const LaneShape& shape);

    /// Whether a message fits into a record.
    bool Fits(std::size_t typeSize, std::size_t bodySize) const;
    /// Room for a body, and kGuardSize bytes behind it; null when there is none now. `type` has `typeSize`
    /// bytes, its terminator included. Throws BadFrame when the reader's position makes no sense.
    void* Reserve(const char* type, std::size_t typeSize, std::size_t bodySize);
    /// The same for a message whose body lies in a block.
    bool ReserveForBlock(const char* type, std::size_t typeSize, std::size_t bodySize, std::uint32_t block);
    /// Publishes the record that was reserved last. `controls` is the number of control frames that were sent
    /// on this link before. True: the reader sleeps, and is to be sent a bell.
    bool Publish(std::uint64_t controls);

    /// The same after room was wanted in vain: a reader that has read everything, and sleeps while one of its
    /// messages is still looked at, is to find that out. True once for each sleep.
    bool ReaderNeedsBell();
    /// Whether the room that was wanted in vain is there.
    bool HasRoom() const;
    void PublishProcessor(int processor);
    /// Where the reader was last seen; -1: not known.
    int ReadersProcessor() const { return static_cast<int>(Head().readersProcessor.Load()) - 1; }

  private:
    bool MakeRoom(std::size_t size);
    void Want(std::uint64_t position);
    void Refresh();
    LaneHead& Head() const { return *reinterpret_cast<LaneHead*>(m_begin); }
    char* At(std::uint64_t position) const { return m_begin + kLaneHead + m_shape.Offset(position); }

    std::shared_ptr<system::Memory> m_memory;
    char* m_begin;  ///< of the memory
    LaneShape m_shape;
    std::uint64_t m_written = 0;
    std::uint64_t m_read = 0;
    std::uint64_t m_wanted = 0;
    std::uint64_t m_controls = 0;
    std::uint64_t m_rungFor = 0;
    std::size_t m_recordSize = 0;
    RingGrowth m_growth;
};

/// A message as a lane hands it out.
struct LaneMessage {
    const char* type = nullptr;
    /// A view of the ring for as long as `storage` is held; empty where the body lies in a block.
    std::span<const char> body;
    std::shared_ptr<const MessageStorage> storage;
    bool inBlock = false;
    std::uint32_t block = 0;
    std::size_t sizeInBlock = 0;

    /// The same message in memory of its own: out of the ring, which others need.
    LaneMessage Copy() const;
};

/// The reading end.
///
/// A message is viewed in the ring until its storage is let go. Several may be viewed at once (from nested
/// loops); room is given back up to the oldest one. If that holds the writer up, it is to make another lane:
/// the view keeps this one's memory.
class LaneReader {
  public:
    LaneReader(std::shared_ptr<system::Memory> memory, const LaneShape& shape);

    bool HasNews() { return m_seen != m_next || Refresh(); }
    /// How many control frames must have been read before the next message is taken; valid when there is
    /// news.
    std::uint64_t Controls() const { return m_controls; }
    /// The next message, if there is one. Throws BadFrame.
    std::optional<LaneMessage> Take();

    /// Gives all room back that is free.
    void GiveBack() { GiveBackUpTo(Free()); }
    /// Whether room was given back since the last call that the writer waits for: it is to be told.
    bool WriterWaits() { return std::exchange(m_writerWaits, false); }
    /// Whether there is more to give back, once messages that are looked at are let go.
    bool OwesRoom() const { return m_givenBack != m_next; }
    /// Whether all is read, and the writer wants room that a message which is looked at takes. True once.
    bool NeedsAnother();

    /// Says that this process sleeps and wants a bell; HasNews is to be asked behind a StoreLoadFence, before
    /// it does. Awake takes it back.
    void Asleep();
    void Awake();
    void PublishProcessor(int processor);
    int WritersProcessor() const { return static_cast<int>(Head().writersProcessor.Load()) - 1; }

  private:
    struct View;
    struct Record;
    struct Held {
        std::uint64_t begin;
        std::shared_ptr<View> view;
    };

    bool Refresh();
    Record NextRecord() const;
    void SetViewAside();
    std::uint64_t Free();
    void GiveBackUpTo(std::uint64_t position);
    LaneHead& Head() const { return *reinterpret_cast<LaneHead*>(m_begin); }
    const char* At(std::uint64_t position) const { return m_begin + kLaneHead + m_shape.Offset(position); }

    std::shared_ptr<system::Memory> m_memory;
    char* m_begin;  ///< of the memory
    LaneShape m_shape;
    /// The writer's position as last seen. Looked at anew when all before it is taken: each look costs the
    /// writer its cache line.
    std::uint64_t m_seen = 0;
    std::uint64_t m_controls = 0;
    std::uint64_t m_next = 0;
    std::uint64_t m_givenBack = 0;
    /// What was handed out last, and where its record begins; and older ones that are still looked at.
    std::shared_ptr<View> m_view;
    std::uint64_t m_viewBegin = 0;
    std::deque<Held> m_held;
    std::uint64_t m_answered = 0;
    std::uint64_t m_sleeps = 0;
    bool m_asleep = false;
    bool m_askedForAnother = false;
    bool m_writerWaits = false;
    RingGrowth m_growth;
};

}  // namespace zyl::backbone::local

#endif
