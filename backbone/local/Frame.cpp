#include "Frame.h"

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

void AppendNumber(std::string& out, std::uint32_t value) {
    char bytes[sizeof value];
    Store(bytes, value);
    out.append(bytes, sizeof bytes);
}

void AppendText(std::string& out, const std::string& text) {
    AppendNumber(out, static_cast<std::uint32_t>(text.size()));
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

    std::uint32_t Number(const char* field) { return Load<std::uint32_t>(Take(4, field).data()); }
    std::string Text(const char* field) {
        const std::span<const char> bytes = Take(Number(field), field);
        return {bytes.data(), bytes.size()};
    }

  private:
    std::span<const char> Take(std::size_t size, const char* field) {
        if (size > m_rest.size()) {
            throw BadFrame(std::string("the field ") + field + " needs " + std::to_string(size) +
                           " bytes of " + std::to_string(m_rest.size()));
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
        throw BadFrame("the frame's magic number is " + std::to_string(magic));
    }
    if (kind < static_cast<int>(FrameKind::kGreeting) || kind > static_cast<int>(FrameKind::kBell)) {
        throw BadFrame("the frame's kind is " + std::to_string(kind));
    }
    if (header.typeSize == 0) {
        throw BadFrame("the frame's type has no terminator");
    }
    const std::size_t limit =
        header.kind == FrameKind::kMessage ? std::numeric_limits<std::int32_t>::max() : kLongestControlBody;
    if (header.bodySize > limit) {
        throw BadFrame("the frame's body has " + std::to_string(header.bodySize) + " bytes of at most " +
                       std::to_string(limit));
    }
    return header;
}

std::string GreetingFrame(const Greeting& greeting) {
    std::string body;
    AppendNumber(body, greeting.version);
    AppendNumber(body, static_cast<std::uint32_t>(greeting.pid));
    AppendText(body, greeting.host);
    AppendText(body, greeting.user);
    return ControlFrame(FrameKind::kGreeting, body);
}

std::string AnnounceFrame(const std::string& application) {
    return ControlFrame(FrameKind::kAnnounce, application);
}

std::string BellFrame() {
    return ControlFrame(FrameKind::kBell, "");
}

std::string LaneFrame(std::uint32_t ringSize) {
    std::string body;
    AppendNumber(body, ringSize);
    return ControlFrame(FrameKind::kLane, body);
}

std::uint32_t ReadLaneFrame(std::span<const char> body) {
    return Fields(body).Number("ring size");
}

Greeting ReadGreeting(std::span<const char> body) {
    Fields fields(body);
    Greeting greeting;
    greeting.version = fields.Number("version");
    if (greeting.version != kProtocolVersion) {
        throw BadFrame("the peer speaks version " + std::to_string(greeting.version) +
                       ", this process version " + std::to_string(kProtocolVersion) +
                       "; both must use the same library");
    }
    greeting.pid = static_cast<std::int32_t>(fields.Number("pid"));
    greeting.host = fields.Text("host");
    greeting.user = fields.Text("user");
    return greeting;
}

}  // namespace zyl::backbone::local
