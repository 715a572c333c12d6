#ifndef ZYL_BACKBONE_LOCAL_FRAME_H
#define ZYL_BACKBONE_LOCAL_FRAME_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

#include "system/System.h"

/// What crosses the channel of a link; integers are little-endian. The opener of a link sends frames, and
/// between them bells:
///
///   offset  bytes  field
///   0       4      magic: "ZYLF"
///   4       2      kind
///   6       2      t: bytes of the type, its NUL terminator included
///   8       4      n: bytes of the body, 0 to 2^31 - 1
///   12      t      type
///   12 + t  n      body
///
///   offset  bytes  field
///   0       1      a bell: 7
///
/// The first frame of a link is the greeting; a link without messages serves to see the peer's end. The
/// listener sends notes:
///
///   offset  bytes  field
///   0       1      kind
///   1       8      value

namespace zyl::backbone::local {

/// The version of the frames, the greeting and the lane. Both sides must have the same. In version 2
/// processes were told apart by their numbers, and woken through a descriptor that all their peers shared.
constexpr std::uint32_t kProtocolVersion = 3;

enum class FrameKind : std::uint16_t {
    kGreeting = 1,  ///< who has opened the link, and to whom: a Greeting
    kAnnounce = 2,  ///< the opener is an announced application: an Announcement
    kMessage = 3,   ///< a message; the type is its type name. The types of all other frames are empty.
    /// Messages from now on come through the shared memory that comes with the frame, behind those in the
    /// lane before: a u32 with the ring's size.
    kLane = 4,
    /// A block for long messages comes with the frame: a u32 with its number, a u64 with its size.
    kBlock = 5,
    kDropBlock = 6,  ///< the block with this number, a u32, is not used any more
};

/// Wakes the listener; the news is in the lane.
constexpr char kBell = 7;

enum class NoteKind : std::uint8_t {
    kRoom = 1,       ///< there is the room in the lane that the opener waits for
    kBlockFree = 2,  ///< the message in the block with this number was dealt with
    kBlockKept = 3,  ///< the listener keeps the block with this number for itself
    kNewLane = 4,  ///< a message that is still looked at holds up the lane: the opener is to make another one
    kHeldUp = 5,   ///< see Transport::SayHeldUp
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

/// Body: u32 version, u64 and u64 identity, u32 pid, then host, user and application, each a u32 length and
/// its bytes.
struct Greeting {
    std::uint32_t version = kProtocolVersion;
    system::Identity identity;
    std::int32_t pid = 0;
    std::string host;
    std::string user;
    std::string application;  ///< the listener's that the link leads to
};

/// Body: u64 order, see system::Entry, and the name, a u32 length and its bytes.
struct Announcement {
    std::uint64_t order = 0;
    std::string application;
};

struct BlockNotice {
    std::uint32_t number = 0;
    std::uint64_t size = 0;
};

/// Whole frames.
std::string GreetingFrame(const Greeting& greeting);
std::string AnnounceFrame(const Announcement& announcement);
std::string LaneFrame(std::uint32_t ringSize);
std::string BlockFrame(const BlockNotice& block);
std::string DropBlockFrame(std::uint32_t number);

/// The bodies of frames. Throw BadFrame; for another version with both numbers.
Greeting ReadGreeting(std::span<const char> body);
Announcement ReadAnnouncement(std::span<const char> body);
std::uint32_t ReadLane(std::span<const char> body);
BlockNotice ReadBlock(std::span<const char> body);
std::uint32_t ReadDropBlock(std::span<const char> body);

struct Note {
    NoteKind kind;
    std::uint64_t value = 0;
};
constexpr std::size_t kNoteSize = 9;
void AppendNote(std::string& out, const Note& note);
/// Reads kNoteSize bytes. Throws BadFrame.
Note ReadNote(const char* in);

}  // namespace zyl::backbone::local

#endif
