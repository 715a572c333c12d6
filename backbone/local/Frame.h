#ifndef ZYL_BACKBONE_LOCAL_FRAME_H
#define ZYL_BACKBONE_LOCAL_FRAME_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

/// What crosses a link of the local transport. Everything is a frame; integers are little-endian.
///
///   offset  bytes  field
///   0       4      magic: "ZYLF"
///   4       2      kind
///   6       2      t: bytes of the type, its NUL terminator included
///   8       4      n: bytes of the body, 0 to 2^31 - 1
///   12      t      type
///   12 + t  n      body
///
/// The first frame of a link is the greeting; a link without messages serves to see the peer's end.

namespace zyl::backbone::local {

/// The version of the frames, the greeting and the lane. Both sides must have the same. In version 1 a lane's
/// reader changed a flag that is now its writer's alone.
constexpr std::uint32_t kProtocolVersion = 2;

enum class FrameKind : std::uint16_t {
    kGreeting = 1,  ///< who has opened the link; the type is empty, the body is a Greeting
    kAnnounce = 2,  ///< the opener is the announced application that the body names; the type is empty
    kMessage = 3,   ///< a message; the type is its type name
    /// From now on messages come through shared memory; the body is a u32 with the ring's size, and with the
    /// frame come the descriptors of the memory, of the opener's bell and of its bell's page.
    kLane = 4,
    kBell = 5,  ///< the listener is to answer with its bell, as for a lane; type and body are empty
};

/// Bytes that no peer of this library writes.
class BadFrame : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct FrameHeader {
    FrameKind kind;
    std::uint16_t typeSize;
    std::uint32_t bodySize;
};

constexpr std::size_t kFrameHeaderSize = 12;

/// Nothing but a message needs more.
constexpr std::size_t kLongestControlBody = 16384;

void WriteFrameHeader(char* out, const FrameHeader& header);

/// Reads and checks kFrameHeaderSize bytes. Throws BadFrame with the field and the number that was wrong.
FrameHeader ReadFrameHeader(const char* in);

/// Body: u32 version, u32 pid, then host and user, each a u32 length and its bytes.
struct Greeting {
    std::uint32_t version = kProtocolVersion;
    std::int32_t pid = 0;
    std::string host;
    std::string user;
};

/// The whole frame of a greeting, or of an announcement.
std::string GreetingFrame(const Greeting& greeting);
std::string AnnounceFrame(const std::string& application);

/// The whole frame that asks for the listener's bell.
std::string BellFrame();

/// The whole frame that opens a lane.
std::string LaneFrame(std::uint32_t ringSize);
/// Throws BadFrame.
std::uint32_t ReadLaneFrame(std::span<const char> body);

/// Throws BadFrame; for another version with both numbers.
Greeting ReadGreeting(std::span<const char> body);

}  // namespace zyl::backbone::local

#endif
