#include "Frame.h"

#include <fmt/format.h>

#include <cstring>
#include <limits>

namespace zyl::backbone::local {

namespace {

constexpr std::uint32_t kMagic = 0x464c595a;  // "ZYLF"

template <class Integer>
Integer Load(const char* in) {
    Integer value;
    std::memcpy(&value, in, sizeof value);
    return value;
}

template <class Integer>
void Store(char* out, Integer value) {
    std::memcpy(out, &value, sizeof value);
}

template <class Integer>
void Append(std::string& out, Integer value) {
    char bytes[sizeof value];
    Store(bytes, value);
    out.append(bytes, sizeof bytes);
}

void AppendText(std::string& out, const std::string& text) {
    Append(out, static_cast<std::uint32_t>(text.size()));
    out += text;
}

std::string ControlFrame(FrameKind kind, const std::string& body) {
    std::string frame(kFrameHeaderSize, '\0');
    WriteFrameHeader(frame.data(), {kind, 1, static_cast<std::uint32_t>(body.size())});
    return frame + '\0' + body;
}

/// Takes fields from the front of a body, never past its end.
class Fields {
  public:
    explicit Fields(std::span<const char> body) : m_rest(body) {}

    template <class Integer>
    Integer Number(const char* field) {
        return Load<Integer>(Take(sizeof(Integer), field).data());
    }
    std::string Text(const char* field) {
        const std::span<const char> bytes = Take(Number<std::uint32_t>(field), field);
        return {bytes.data(), bytes.size()};
    }

  private:
    std::span<const char> Take(std::size_t size, const char* field) {
        if (size > m_rest.size()) {
            throw BadFrame(fmt::format("the field {} needs {} bytes of {}", field, size, m_rest.size()));
        }
        const std::span<const char> taken = m_rest.first(size);
        m_rest = m_rest.subspan(size);
        return taken;
    }

    std::span<const char> m_rest;
};

}  // namespace

void WriteFrameHeader(char* out, const FrameHeader& header) {
    Store(out, kMagic);
    Store(out + 4, static_cast<std::uint16_t>(header.kind));
    Store(out + 6, header.typeSize);
    Store(out + 8, header.bodySize);
}

FrameHeader ReadFrameHeader(const char* in) {
    const auto magic = Load<std::uint32_t>(in);
    const auto kind = Load<std::uint16_t>(in + 4);
    const FrameHeader header{static_cast<FrameKind>(kind), Load<std::uint16_t>(in + 6),
                             Load<std::uint32_t>(in + 8)};
    if (magic != kMagic) {
        throw BadFrame(fmt::format("the frame's magic number is {}", magic));
    }
    if (kind < static_cast<int>(FrameKind::kGreeting) || kind > static_cast<int>(FrameKind::kDropBlock)) {
        throw BadFrame(fmt::format("the frame's kind is {}", kind));
    }
    if (header.typeSize == 0) {
        throw BadFrame("the frame's type has no terminator");
    }
    const std::size_t limit =
        header.kind == FrameKind::kMessage ? std::numeric_limits<std::int32_t>::max() : kLongestControlBody;
    if (header.bodySize > limit) {
        throw BadFrame(fmt::format("the frame's body has {} bytes of at most {}", header.bodySize, limit));
    }
    return header;
}

std::string GreetingFrame(const Greeting& greeting) {
    std::string body;
    Append(body, greeting.version);
    Append(body, greeting.identity.high);
    Append(body, greeting.identity.low);
    Append(body, greeting.pid);
    AppendText(body, greeting.host);
    AppendText(body, greeting.user);
    AppendText(body, greeting.application);
    return ControlFrame(FrameKind::kGreeting, body);
}

std::string AnnounceFrame(const Announcement& announcement) {
    std::string body;
    Append(body, announcement.order);
    AppendText(body, announcement.application);
    return ControlFrame(FrameKind::kAnnounce, body);
}

std::string LaneFrame(std::uint32_t ringSize) {
    std::string body;
    Append(body, ringSize);
    return ControlFrame(FrameKind::kLane, body);
}

std::string BlockFrame(const BlockNotice& block) {
    std::string body;
    Append(body, block.number);
    Append(body, block.size);
    return ControlFrame(FrameKind::kBlock, body);
}

std::string DropBlockFrame(std::uint32_t number) {
    std::string body;
    Append(body, number);
    return ControlFrame(FrameKind::kDropBlock, body);
}

Greeting ReadGreeting(std::span<const char> body) {
    Fields fields(body);
    Greeting greeting;
    greeting.version = fields.Number<std::uint32_t>("version");
    if (greeting.version != kProtocolVersion) {
        throw BadFrame(
            fmt::format("the peer speaks version {}, this process version {}; both must use the same library",
                        greeting.version, kProtocolVersion));
    }
    greeting.identity.high = fields.Number<std::uint64_t>("identity");
    greeting.identity.low = fields.Number<std::uint64_t>("identity");
    greeting.pid = fields.Number<std::int32_t>("pid");
    greeting.host = fields.Text("host");
    greeting.user = fields.Text("user");
    greeting.application = fields.Text("application");
    return greeting;
}

Announcement ReadAnnouncement(std::span<const char> body) {
    Fields fields(body);
    Announcement announcement;
    announcement.order = fields.Number<std::uint64_t>("order");
    announcement.application = fields.Text("application");
    return announcement;
}

std::uint32_t ReadLane(std::span<const char> body) {
    return Fields(body).Number<std::uint32_t>("ring size");
}

BlockNotice ReadBlock(std::span<const char> body) {
    Fields fields(body);
    BlockNotice block;
    block.number = fields.Number<std::uint32_t>("block number");
    block.size = fields.Number<std::uint64_t>("block size");
    return block;
}

std::uint32_t ReadDropBlock(std::span<const char> body) {
    return Fields(body).Number<std::uint32_t>("block number");
}

void AppendNote(std::string& out, const Note& note) {
    Append(out, note.kind);
    Append(out, note.value);
}

Note ReadNote(const char* in) {
    const auto kind = Load<std::uint8_t>(in);
    if (kind < static_cast<int>(NoteKind::kRoom) || kind > static_cast<int>(NoteKind::kHeldUp)) {
        throw BadFrame(fmt::format("the listener's note is of kind {}", kind));
    }
    return {static_cast<NoteKind>(kind), Load<std::uint64_t>(in + 1)};
}

}  // namespace zyl::backbone::local
