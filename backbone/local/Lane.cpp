#include "Lane.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace zyl::backbone::local {

namespace {

enum class RecordKind : std::uint32_t { kMessage = 1, kInBlock = 2, kNothing = 3 };

/// A record's fields as they lie in the ring.
struct RecordHeader {
    RecordKind kind;
    std::uint32_t typeSize;
    std::uint32_t bodyOffset;
    std::uint32_t bodySize;
    std::uint32_t sizeInBlock;
    std::uint32_t block;
};

constexpr std::size_t kHeaderSize = sizeof(RecordHeader);
static_assert(kHeaderSize == 24);

/// From this size on a body starts on a cache line, too: smaller ones pass in fewer of them without.
constexpr std::size_t kLineAlignedBody = 512;
constexpr std::size_t kSmallAlignment = 8;

/// From this size on a body starts on a page: the few bytes lost are little beside it.
constexpr std::size_t kPageAlignedBody = std::size_t{16} * 1024;
constexpr std::size_t kPage = 4096;

/// So much of a ring is prepared at first.
constexpr std::size_t kLeastPrepared = 4 * kPage;

constexpr std::uint64_t RoundUp(std::uint64_t value, std::uint64_t unit) {
    return (value + unit - 1) / unit * unit;
}

std::size_t BodyAlignment(std::size_t bodySize) {
    return bodySize >= kPageAlignedBody ? kPage : bodySize >= kLineAlignedBody ? kCacheLine : kSmallAlignment;
}

/// Where the body of a record that begins at `offset` in the ring begins, as an offset in the record.
std::size_t BodyOffset(std::size_t offset, std::size_t typeSize, std::size_t bodySize) {
    return RoundUp(offset + kHeaderSize + typeSize, BodyAlignment(bodySize)) - offset;
}

/// The cache lines that the next small record takes, most likely: on their way while the caller still
/// computes.
constexpr std::size_t kAhead = 4 * kCacheLine;

enum Access { kToRead, kToWrite };

template <Access access>
void FetchAhead(const char* position) {
    for (std::size_t offset = 0; offset < kAhead; offset += kCacheLine) {
        __builtin_prefetch(position + offset, access);
    }
}

}  // namespace

void RingGrowth::Grow(std::uint64_t position, system::Memory& memory, std::size_t ring) {
    const std::size_t end = RoundUp(std::clamp<std::uint64_t>(2 * position, kLeastPrepared, ring), kPage);
    memory.Prepare(kLaneHead + m_prepared, std::min(end, ring) - m_prepared);
    m_prepared = end;
}

LaneWriter::LaneWriter(std::shared_ptr<system::Memory> memory, const LaneShape& shape)
    : m_memory(std::move(memory)), m_begin(m_memory->Bytes().data()), m_shape(shape) {}

bool LaneWriter::Fits(std::size_t typeSize, std::size_t bodySize) const {
    const std::size_t most = m_shape.LongestRecord();
    return bodySize <= most &&
           kHeaderSize + typeSize + BodyAlignment(bodySize) + bodySize + kGuardSize + kCacheLine <= most;
}

void* LaneWriter::Reserve(const char* type, std::size_t typeSize, std::size_t bodySize) {
    const auto sizeAt = [&](std::size_t offset) {
        return RoundUp(BodyOffset(offset, typeSize, bodySize) + bodySize + kGuardSize, kCacheLine);
    };
    const std::size_t offset = m_shape.Offset(m_written);
    const std::size_t rest = m_shape.ring - offset;
    const bool here = sizeAt(offset) <= rest;
    if (!MakeRoom(here ? sizeAt(offset) : rest + sizeAt(0))) {
        return nullptr;
    }
    if (!here) {
        const RecordHeader nothing{RecordKind::kNothing,
                                   0,
                                   static_cast<std::uint32_t>(kHeaderSize),
                                   static_cast<std::uint32_t>(rest - kHeaderSize),
                                   0,
                                   0};
        std::memcpy(At(m_written), &nothing, sizeof nothing);
        m_written += rest;
    }
    const std::size_t bodyOffset = BodyOffset(here ? offset : 0, typeSize, bodySize);
    m_recordSize = RoundUp(bodyOffset + bodySize, kCacheLine);
    const RecordHeader header{RecordKind::kMessage,
                              static_cast<std::uint32_t>(typeSize),
                              static_cast<std::uint32_t>(bodyOffset),
                              static_cast<std::uint32_t>(bodySize),
                              0,
                              0};
    char* record = At(m_written);
    std::memcpy(record, &header, sizeof header);
    std::memcpy(record + kHeaderSize, type, typeSize);
    return record + bodyOffset;
}

bool LaneWriter::ReserveForBlock(const char* type, std::size_t typeSize, std::size_t bodySize,
                                 std::uint32_t block) {
    void* body = Reserve(type, typeSize, 0);
    if (body == nullptr) {
        return false;
    }
    char* record = At(m_written);
    RecordHeader header;
    std::memcpy(&header, record, sizeof header);
    header.kind = RecordKind::kInBlock;
    header.sizeInBlock = static_cast<std::uint32_t>(bodySize);
    header.block = block;
    std::memcpy(record, &header, sizeof header);
    return true;
}

bool LaneWriter::Publish(std::uint64_t controls) {
    m_written += m_recordSize;
    if (m_controls != controls) {
        m_controls = controls;
        Head().controls.Store(controls);
    }
    Head().written.Store(m_written);
    FetchAhead<kToWrite>(At(m_written));
    m_growth.Reached(m_written, *m_memory, m_shape.ring);
    StoreLoadFence();
    return ReaderNeedsBell();
}

bool LaneWriter::ReaderNeedsBell() {
    const std::uint64_t sleeps = Head().sleeps.Load();
    if (sleeps == 0 || sleeps == m_rungFor) {
        return false;
    }
    m_rungFor = sleeps;
    return true;
}

bool LaneWriter::MakeRoom(std::size_t size) {
    const auto enough = [&] { return m_shape.ring - (m_written - m_read) >= size; };
    if (!enough()) {
        Refresh();
    }
    if (!enough()) {
        Want(m_written + size - m_shape.ring);
        StoreLoadFence();
        Refresh();
    }
    if (!enough()) {
        return false;
    }
    Want(0);
    return true;
}

void LaneWriter::Want(std::uint64_t position) {
    if (m_wanted != position) {
        m_wanted = position;
        Head().wanted.Store(position);
    }
}

void LaneWriter::Refresh() {
    const std::uint64_t read = Head().read.Load();
    if (read - m_read > m_written - m_read || read % kCacheLine != 0) {
        throw BadFrame(fmt::format("the lane's reader is at {}, which is no record from {} to {}", read,
                                   m_read, m_written));
    }
    m_read = read;
}

bool LaneWriter::HasRoom() const {
    return Head().read.Load() >= m_wanted;
}

void LaneWriter::PublishProcessor(int processor) {
    if (static_cast<int>(Head().writersProcessor.Load()) != processor + 1) {
        Head().writersProcessor.Store(static_cast<std::uint64_t>(processor) + 1);
    }
}

LaneMessage LaneMessage::Copy() const {
    struct Bytes final : MessageStorage {
        std::string type;
        std::vector<char> body;
    };
    auto copy = std::make_shared<Bytes>();
    copy->type = type;
    copy->body.assign(body.begin(), body.end());
    return {copy->type.c_str(), copy->body, copy};
}

/// What a message that was handed out needs: the ring that its body lies in, and its type.
struct LaneReader::View final : MessageStorage {
    explicit View(std::shared_ptr<system::Memory> lane) : memory(std::move(lane)) {}
    std::shared_ptr<system::Memory> memory;
    std::vector<char> type;
};

/// A record, checked, at the reader's position.
struct LaneReader::Record {
    RecordHeader header;
    const char* type;
    std::span<const char> body;
    std::size_t size;
};

LaneReader::LaneReader(std::shared_ptr<system::Memory> memory, const LaneShape& shape)
    : m_memory(std::move(memory)),
      m_begin(m_memory->Bytes().data()),
      m_shape(shape),
      m_view(std::make_shared<View>(m_memory)) {}

std::optional<LaneMessage> LaneReader::Take() {
    SetViewAside();
    const std::uint64_t free = Free();
    if (free - m_givenBack >= m_shape.roomStep) {
        GiveBackUpTo(free);
    }
    while (HasNews()) {
        const Record record = NextRecord();
        m_viewBegin = m_next;
        m_next += record.size;
        m_growth.Reached(m_next, *m_memory, m_shape.ring);
        if (record.header.kind == RecordKind::kNothing) {
            continue;
        }
        if (m_seen != m_next) {
            FetchAhead<kToRead>(At(m_next));
        }
        m_view->type.assign(record.type, record.type + record.header.typeSize);
        m_view->type.back() = '\0';
        if (record.header.kind == RecordKind::kInBlock) {
            return LaneMessage{m_view->type.data(),      {}, m_view, true, record.header.block,
                               record.header.sizeInBlock};
        }
        return LaneMessage{m_view->type.data(), record.body, m_view};
    }
    return std::nullopt;
}

/// The writer's position comes first: its count of control frames belongs to it, or to a later one.
bool LaneReader::Refresh() {
    m_seen = Head().written.Load();
    if (m_seen == m_next) {
        return false;
    }
    m_controls = Head().controls.Load();
    return true;
}

/// Checks a copy of the record's head: the one in the ring may change under our eyes.
LaneReader::Record LaneReader::NextRecord() const {
    const std::uint64_t available = m_seen - m_next;
    if (available > m_shape.ring || available % kCacheLine != 0) {
        throw BadFrame(fmt::format("the lane's writer is {} bytes ahead of its reader", available));
    }
    Record record{};
    const std::size_t offset = m_shape.Offset(m_next);
    const char* start = At(m_next);
    std::memcpy(&record.header, start, sizeof record.header);
    const RecordHeader& header = record.header;
    record.size = RoundUp(std::uint64_t{header.bodyOffset} + header.bodySize, kCacheLine);
    const bool nothing = header.kind == RecordKind::kNothing;
    const bool known = nothing || header.kind == RecordKind::kMessage || header.kind == RecordKind::kInBlock;
    if (!known || nothing != (header.typeSize == 0) ||
        header.typeSize > std::numeric_limits<std::uint16_t>::max() ||
        header.bodyOffset < kHeaderSize + header.typeSize || record.size > available ||
        record.size > m_shape.ring - offset ||
        header.sizeInBlock > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max())) {
        throw BadFrame(fmt::format(
            "a record of kind {} with a type of {} and a body of {} bytes at {}, {} bytes being there",
            static_cast<std::uint32_t>(header.kind), header.typeSize, header.bodySize, header.bodyOffset,
            available));
    }
    record.type = start + kHeaderSize;
    record.body = {start + header.bodyOffset, header.bodySize};
    return record;
}

/// A message that is still looked at keeps its view, and the next one gets another.
void LaneReader::SetViewAside() {
    if (m_view.use_count() > 1) {
        m_held.push_back({m_viewBegin, std::move(m_view)});
        m_view = std::make_shared<View>(m_memory);
    }
}

/// Up to where nobody looks at anything.
std::uint64_t LaneReader::Free() {
    while (!m_held.empty() && m_held.front().view.use_count() == 1) {
        m_held.pop_front();
    }
    if (!m_held.empty()) {
        return m_held.front().begin;
    }
    return m_view.use_count() > 1 ? m_viewBegin : m_next;
}

void LaneReader::GiveBackUpTo(std::uint64_t position) {
    if (position == m_givenBack) {
        return;
    }
    m_givenBack = position;
    Head().read.Store(position);
    StoreLoadFence();
    const std::uint64_t wanted = Head().wanted.Load();
    if (wanted != 0 && wanted != m_answered && position >= wanted) {
        m_answered = wanted;
        m_writerWaits = true;
    }
}

bool LaneReader::NeedsAnother() {
    if (m_askedForAnother || m_givenBack == m_next || HasNews() || Head().wanted.Load() <= m_givenBack) {
        return false;
    }
    m_askedForAnother = true;
    return true;
}

void LaneReader::Asleep() {
    m_asleep = true;
    Head().sleeps.Store(++m_sleeps);
}

void LaneReader::Awake() {
    if (m_asleep) {
        m_asleep = false;
        Head().sleeps.Store(0);
    }
}

void LaneReader::PublishProcessor(int processor) {
    if (static_cast<int>(Head().readersProcessor.Load()) != processor + 1) {
        Head().readersProcessor.Store(static_cast<std::uint64_t>(processor) + 1);
    }
}

}  // namespace zyl::backbone::local
