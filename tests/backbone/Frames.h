#ifndef ZYL_TESTS_BACKBONE_FRAMES_H
#define ZYL_TESTS_BACKBONE_FRAMES_H

#include <string>

#include "local/Frame.h"

/// A frame's header with any values in its fields.
inline std::string Header(int kind, int typeSize, std::uint32_t bodySize) {
    using namespace zyl::backbone::local;
    std::string header(kFrameHeaderSize, '\0');
    WriteFrameHeader(header.data(),
                     {static_cast<FrameKind>(kind), static_cast<std::uint16_t>(typeSize), bodySize});
    return header;
}

/// The frame of a message as a peer sends it.
inline std::string MessageFrame(const std::string& type, const std::string& body) {
    return Header(static_cast<int>(zyl::backbone::local::FrameKind::kMessage),
                  static_cast<int>(type.size()) + 1, static_cast<std::uint32_t>(body.size())) +
           type + '\0' + body;
}

#endif
