#include "FrameReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace zyl::backbone::local {

namespace {

/// A link that carries little reads this much at once.
constexpr std::size_t kQuietChunk = 4096;

/// A busy link takes as much as a socket holds with one read.
constexpr std::size_t kBusyChunk = std::size_t{256} * 1024;

}  // namespace

struct FrameReader::Chunk final : MessageStorage {
    explicit Chunk(std::size_t size) : bytes(std::make_unique_for_overwrite<char[]>(size)), capacity(size) {}
    std::unique_ptr<char[]> bytes;
    std::size_t capacity;
};

/// Bytes of the frame at the front as far as they are known: its header's, or all of them.
std::size_t FrameReader::FrameSize() const {
    if (m_end - m_begin < kFrameHeaderSize) {
        return kFrameHeaderSize;
    }
    const FrameHeader header = ReadFrameHeader(m_chunk->bytes.get() + m_begin);
    return kFrameHeaderSize + header.typeSize + header.bodySize;
}

std::span<char> FrameReader::Room() {
    const bool unused = m_begin == m_end && m_chunk.use_count() == 1;
    if (m_chunk == nullptr || m_end == m_chunk->capacity || unused) {
        MakeRoom(FrameSize());
    }
    return {m_chunk->bytes.get() + m_end, m_chunk->capacity - m_end};
}

/// Moves what is pending to the front of a chunk that no view looks into.
void FrameReader::MakeRoom(std::size_t frameSize) {
    const std::size_t pending = m_end - m_begin;
    const std::size_t least = m_busy ? kBusyChunk : kQuietChunk;
    const std::size_t wanted = std::max(least, std::min(frameSize, 2 * pending + kBusyChunk));
    const bool reusable = m_chunk != nullptr && m_chunk.use_count() == 1 && m_chunk->capacity >= wanted &&
                          m_chunk->capacity <= std::max(wanted, kBusyChunk);
    std::shared_ptr<Chunk> chunk = reusable ? m_chunk : std::make_shared<Chunk>(wanted);
    if (pending > 0) {
        std::memmove(chunk->bytes.get(), m_chunk->bytes.get() + m_begin, pending);
    }
    m_chunk = std::move(chunk);
    m_begin = 0;
    m_end = pending;
}

void FrameReader::Received(std::size_t size) {
    m_end += size;
    m_busy = m_busy || m_end == m_chunk->capacity;
}

void FrameReader::Rest() {
    SkipBells();
    if (!m_busy && m_begin == m_end) {
        m_chunk.reset();
        m_begin = 0;
        m_end = 0;
    }
}

void FrameReader::SkipBells() {
    while (m_begin < m_end && m_chunk->bytes[m_begin] == kBell) {
        ++m_begin;
    }
}

std::optional<FrameKind> FrameReader::NextKind() {
    SkipBells();
    if (m_end - m_begin < kFrameHeaderSize) {
        return std::nullopt;
    }
    return ReadFrameHeader(m_chunk->bytes.get() + m_begin).kind;
}

std::optional<FrameView> FrameReader::Next() {
    SkipBells();
    const std::size_t frameSize = FrameSize();
    if (m_end - m_begin < kFrameHeaderSize || m_end - m_begin < frameSize) {
        return std::nullopt;
    }
    const char* frame = m_chunk->bytes.get() + m_begin;
    const FrameHeader header = ReadFrameHeader(frame);
    const char* type = frame + kFrameHeaderSize;
    if (std::memchr(type, '\0', header.typeSize) != type + header.typeSize - 1) {
        throw BadFrame(
            fmt::format("the frame's type of {} bytes does not end at its terminator", header.typeSize));
    }
    m_begin += frameSize;
    return FrameView{header.kind, type, {type + header.typeSize, header.bodySize}, m_chunk};
}

}  // namespace zyl::backbone::local
