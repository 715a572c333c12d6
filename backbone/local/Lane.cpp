#include "Lane.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

namespace zyl::backbone::local {

namespace {

enum class RecordKind : std::uint32_t { kWhole = 1, kFirst = 2, kFurther = 3 };

/// A record's fields as they lie in the ring.
struct RecordHeader {
    RecordKind kind;
    std::uint32_t typeSize;
    std::uint32_t bodyOffset;
    std::uint32_t bodySize;
    std::uint32_t messageSize;
    std::uint32_t zero;
};

constexpr std::size_t kHeaderSize = sizeof(RecordHeader);
static_assert(kHeaderSize == 24);

/// A record begins on a cache line.
constexpr std::size_t kAlignment = 64;

/// From this size on a body starts on a cache line, too: smaller ones pass in fewer of them without.
constexpr std::size_t kLineAlignedBody = 512;
constexpr std::size_t kSmallAlignment = 8;

/// From this size on a body starts on a page: the few bytes lost are little beside it.
constexpr std::size_t kPageAlignedBody = std::size_t{16} * 1024;

constexpr std::uint64_t RoundUp(std::uint64_t value, std::uint64_t unit) {
    return (value + unit - 1) / unit * unit;
}

/// Where the body of a record at `position` begins, as an offset in the record.
std::size_t BodyOffset(std::uint64_t position, std::size_t typeSize, std::size_t bodySize) {
    const std::uint64_t unit = bodySize >= kPageAlignedBody   ? kPageSize
                               : bodySize >= kLineAlignedBody ? kAlignment
                                                              : kSmallAlignment;
    return RoundUp(position + kHeaderSize + typeSize, unit) - position;
}

void WriteHeader(char* record, RecordKind kind, std::size_t typeSize, std::size_t bodyOffset,
                 std::size_t bodySize, std::size_t messageSize) {
    const RecordHeader header{kind,
                              static_cast<std::uint32_t>(typeSize),
                              static_cast<std::uint32_t>(bodyOffset),
                              static_cast<std::uint32_t>(bodySize),
                              static_cast<std::uint32_t>(messageSize),
                              0};
    std::memcpy(record, &header, sizeof header);
}

/// The cache lines that the next small record takes, most likely: on their way while the caller still
/// computes.
constexpr std::size_t kAhead = 4 * kAlignment;

enum Access { kToRead, kToWrite };

template <Access access>
void FetchAhead(const char* position) {
    for (std::size_t offset = 0; offset < kAhead; offset += kAlignment) {
        __builtin_prefetch(position + offset, access);
    }
}

}  // namespace

LaneWriter::LaneWriter(Mapping mapping) : m_mapping(std::move(mapping)) {}

void* LaneWriter::Reserve(const char* type, std::size_t size) {
    const std::size_t typeSize = std::strlen(type) + 1;
    m_inPieces = kHeaderSize + typeSize + kPageSize + size > kLongestRecord;
    if (m_inPieces) {
        m_type.assign(type, type + typeSize);
        m_body = std::make_unique_for_overwrite<char[]>(size + kGuardSize);
        m_bodySize = size;
        m_bodySent = 0;
        return m_body.get();
    }
    const std::size_t bodyOffset = BodyOffset(m_written, typeSize, size);
    m_recordSize = RoundUp(bodyOffset + size, kAlignment);
    if (!MakeRoom(RoundUp(bodyOffset + size + kGuardSize, kAlignment))) {
        return nullptr;
    }
    char* record = At(m_written);
    WriteHeader(record, RecordKind::kWhole, typeSize, bodyOffset, size, size);
    std::memcpy(record + kHeaderSize, type, typeSize);
    return record + bodyOffset;
}

Progress LaneWriter::Commit() {
    if (!m_inPieces) {
        Publish(m_recordSize);
        return Progress::kDone;
    }
    const std::size_t before = m_bodySent;
    while (m_bodySent < m_bodySize) {
        if (!CommitPiece()) {
            return m_bodySent > before ? Progress::kAdvanced : Progress::kBlocked;
        }
    }
    m_body.reset();
    return Progress::kDone;
}

bool LaneWriter::CommitPiece() {
    const bool first = m_bodySent == 0;
    const std::size_t typeSize = first ? m_type.size() : 0;
    const std::size_t size =
        std::min(m_bodySize - m_bodySent, kLongestRecord - kPageSize - kHeaderSize - typeSize);
    const std::size_t bodyOffset = BodyOffset(m_written, typeSize, size);
    const std::size_t recordSize = RoundUp(bodyOffset + size, kAlignment);
    if (!MakeRoom(recordSize)) {
        return false;
    }
    char* record = At(m_written);
    WriteHeader(record, first ? RecordKind::kFirst : RecordKind::kFurther, typeSize, bodyOffset, size,
                m_bodySize);
    std::memcpy(record + kHeaderSize, m_type.data(), typeSize);
    std::memcpy(record + bodyOffset, m_body.get() + m_bodySent, size);
    m_bodySent += size;
    Publish(recordSize);
    return true;
}

void LaneWriter::Publish(std::size_t recordSize) {
    m_written += recordSize;
    Positions().written.store(m_written, std::memory_order_release);
    FetchAhead<kToWrite>(At(m_written));
}

/// Says that room is wanted before the last look, as the reader gives back before it looks whether that is
/// so. The word stands until there is enough: the reader may give back several times until then.
bool LaneWriter::MakeRoom(std::size_t size) {
    const auto enough = [&] { return kRingSize - (m_written - m_read) >= size; };
    if (!enough()) {
        Refresh();
    }
    if (!enough()) {
        SetRoomWanted(true);
        std::atomic_thread_fence(std::memory_order_seq_cst);
        Refresh();
        m_heldUpAt = m_read;
    }
    if (enough()) {
        SetRoomWanted(false);
        return true;
    }
    return false;
}

void LaneWriter::SetRoomWanted(bool wanted) {
    if (m_wantsRoom != wanted) {
        m_wantsRoom = wanted;
        Positions().roomWanted.store(wanted ? 1 : 0, std::memory_order_relaxed);
    }
}

void LaneWriter::Refresh() {
    const std::uint64_t read = Positions().read.load(std::memory_order_acquire);
    if (read - m_read > m_written - m_read || read % kAlignment != 0) {
        throw BadFrame("the lane's reader is at " + std::to_string(read) + ", which is no record from " +
                       std::to_string(m_read) + " to " + std::to_string(m_written));
    }
    m_read = read;
}

bool LaneWriter::HasRoom() const {
    return Positions().read.load(std::memory_order_relaxed) != m_heldUpAt;
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

/// Where a message that was handed out lies: in the ring, in a mapping of its own, or put together from
/// pieces.
struct LaneReader::View final : MessageStorage {
    std::vector<char> type;
    Mapping mapping;
    std::unique_ptr<char[]> body;
};

/// A record, checked, at the reader's position.
struct LaneReader::Record {
    RecordHeader header;
    const char* type;
    std::span<const char> body;
    std::size_t size;
};

LaneReader::LaneReader(Mapping mapping)
    : m_mapping(std::move(mapping)),
      m_view(std::make_shared<View>()),
      m_canView(m_mapping.Duplicate().IsMapped()) {}

/// A message that a handler is still looking at keeps the memory; nobody writes into its part of the ring any
/// more.
LaneReader::~LaneReader() {
    if (m_view.use_count() > 1) {
        m_view->mapping = std::move(m_mapping);
    }
}

std::optional<LaneMessage> LaneReader::Take() {
    LetGo();
    GiveBackInSteps();
    while (HasNews()) {
        const Record record = NextRecord();
        m_next += record.size;
        if (m_seen != m_next) {
            FetchAhead<kToRead>(At(m_next));
        }
        if (record.header.kind == RecordKind::kWhole) {
            m_view->type.assign(record.type, record.type + record.header.typeSize);
            m_view->type.back() = '\0';
            m_viewed = record.body;
            if (!m_canView) {
                return LaneMessage{m_view->type.data(), record.body, nullptr}.Copy();
            }
            return LaneMessage{m_view->type.data(), record.body, m_view};
        }
        Assemble(record);
        m_free = m_next;
        if (m_assembled == m_assemblySize) {
            const std::shared_ptr<View> whole = std::move(m_assembly);
            return LaneMessage{whole->type.data(), {whole->body.get(), m_assemblySize}, whole};
        }
        GiveBackInSteps();
    }
    return std::nullopt;
}

bool LaneReader::Refresh() {
    m_seen = Positions().written.load(std::memory_order_acquire);
    return m_seen != m_next;
}

/// Checks a copy of the record's head: the one in the ring may change under our eyes.
LaneReader::Record LaneReader::NextRecord() const {
    const std::uint64_t available = m_seen - m_next;
    if (available > kRingSize || available % kAlignment != 0) {
        throw BadFrame("the lane's writer is " + std::to_string(available) + " bytes ahead of its reader");
    }
    Record record{};
    const char* start = At(m_next);
    std::memcpy(&record.header, start, sizeof record.header);
    const RecordHeader& header = record.header;
    record.size = RoundUp(std::uint64_t{header.bodyOffset} + header.bodySize, kAlignment);
    const bool further = header.kind == RecordKind::kFurther;
    const bool known = header.kind == RecordKind::kWhole || header.kind == RecordKind::kFirst || further;
    if (!known || further == (header.typeSize != 0) ||
        header.typeSize > std::numeric_limits<std::uint16_t>::max() ||
        header.bodyOffset < kHeaderSize + header.typeSize || record.size > available ||
        header.messageSize > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max())) {
        throw BadFrame("a record of kind " + std::to_string(static_cast<std::uint32_t>(header.kind)) +
                       " with a type of " + std::to_string(header.typeSize) + " and a body of " +
                       std::to_string(header.bodySize) + " bytes at " + std::to_string(header.bodyOffset) +
                       ", " + std::to_string(available) + " bytes being there");
    }
    record.type = start + kHeaderSize;
    record.body = {start + header.bodyOffset, header.bodySize};
    return record;
}

/// The message that was handed out last is either done with, or keeps this mapping and leaves the ring to a
/// new one.
void LaneReader::LetGo() {
    if (m_view.use_count() > 1) {
        Mapping fresh = m_mapping.Duplicate();
        if (!fresh.IsMapped() || !m_mapping.MakePrivate(m_viewed)) {
            throw std::bad_alloc();
        }
        m_view->mapping = std::move(m_mapping);
        m_mapping = std::move(fresh);
        m_view = std::make_shared<View>();
    }
    m_free = m_next;
}

void LaneReader::Assemble(const Record& record) {
    if (record.header.kind == RecordKind::kFirst) {
        m_assembly = std::make_shared<View>();
        m_assembly->type.assign(record.type, record.type + record.header.typeSize);
        m_assembly->type.back() = '\0';
        m_assemblySize = record.header.messageSize;
        m_assembled = 0;
        m_assembly->body = std::make_unique_for_overwrite<char[]>(m_assemblySize);
    }
    if (m_assembly == nullptr || record.body.size() > m_assemblySize - m_assembled) {
        throw BadFrame("a piece of " + std::to_string(record.body.size()) + " bytes after " +
                       std::to_string(m_assembled) + " of " + std::to_string(m_assemblySize));
    }
    std::memcpy(m_assembly->body.get() + m_assembled, record.body.data(), record.body.size());
    m_assembled += record.body.size();
}

void LaneReader::GiveBackInSteps() {
    if (m_free - m_givenBack >= kRoomStep) {
        GiveBack();
    }
}

void LaneReader::GiveBack() {
    if (m_view.use_count() == 1) {
        m_free = m_next;
    }
    if (m_free == m_givenBack) {
        return;
    }
    m_givenBack = m_free;
    Positions().read.store(m_givenBack, std::memory_order_release);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    m_writerWaits = m_writerWaits || Positions().roomWanted.load(std::memory_order_relaxed) != 0;
}

}  // namespace zyl::backbone::local
