#ifndef ZYL_BACKBONE_LOCAL_FRAMEREADER_H
#define ZYL_BACKBONE_LOCAL_FRAMEREADER_H

#include <cstddef>
#include <memory>
#include <optional>
#include <span>

#include "Frame.h"
#include "transport/Transport.h"

namespace zyl::backbone::local {

/// A frame where it was received; valid as long as `storage` is held.
struct FrameView {
    FrameKind kind;
    const char* type;  ///< NUL-terminated
    std::span<const char> body;
    std::shared_ptr<const MessageStorage> storage;
};

/// Cuts a stream of received bytes into frames, drops the bells between them, and copies no whole frame: the
/// caller receives into Room and takes frames out with Next until there is none. Memory grows with what has
/// been received, never with what is announced.
class FrameReader {
  public:
    /// Where the next bytes go; never empty. Invalidated by every other call.
    std::span<char> Room();
    /// The first `size` bytes of Room were filled.
    void Received(std::size_t size);
    /// Nothing more comes for a while: a link that carries little keeps no memory meanwhile.
    void Rest();
    /// Whether everything that was received was taken.
    bool IsEmpty() const { return m_begin == m_end; }
    /// The kind of the next frame, once its header is there. Throws BadFrame.
    std::optional<FrameKind> NextKind();
    /// The next whole frame, if there is one. Throws BadFrame; nothing may be read afterwards.
    std::optional<FrameView> Next();

  private:
    struct Chunk;

    std::size_t FrameSize() const;
    void SkipBells();
    void MakeRoom(std::size_t frameSize);

    std::shared_ptr<Chunk> m_chunk;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    bool m_busy = false;
};

}  // namespace zyl::backbone::local

#endif
