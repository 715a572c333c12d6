// What a stranger sends to the socket of an application. The first byte of an input is the size of the pieces
// in which the rest arrives; in one piece it must come to the same.
#include <algorithm>
#include <string>
#include <vector>

#include "Fuzz.h"
#include "local/FrameReader.h"

namespace {

using namespace zyl::backbone::local;

std::string Text(const FrameView& frame) {
    const std::string head = std::to_string(static_cast<int>(frame.kind)) + frame.type + '\0';
    switch (frame.kind) {
        case FrameKind::kGreeting: {
            const Greeting greeting = ReadGreeting(frame.body);
            return head + std::to_string(greeting.pid) + greeting.host + '\0' + greeting.user +
                   greeting.application;
        }
        case FrameKind::kAnnounce:
            return head + ReadAnnouncement(frame.body).application;
        case FrameKind::kLane:
            return head + std::to_string(ReadLane(frame.body));
        case FrameKind::kBlock:
            return head + std::to_string(ReadBlock(frame.body).size);
        case FrameKind::kDropBlock:
            return head + std::to_string(ReadDropBlock(frame.body));
        case FrameKind::kMessage:
            break;
    }
    return head + std::string(frame.body.data(), frame.body.size());
}

/// Every frame up to the first bad one, whose complaint stands last.
std::vector<std::string> Frames(std::string_view stream, std::size_t pieceSize) {
    FrameReader reader;
    std::vector<std::string> frames;
    try {
        while (!stream.empty()) {
            const std::span<char> room = reader.Room();
            Require(!room.empty(), "there is always room");
            const std::size_t size = std::min({pieceSize, room.size(), stream.size()});
            std::copy_n(stream.begin(), size, room.begin());
            stream.remove_prefix(size);
            reader.Received(size);
            while (const std::optional<FrameView> frame = reader.Next()) {
                frames.push_back(Text(*frame));
            }
        }
    } catch (const BadFrame& bad) {
        frames.emplace_back(bad.what());
    }
    return frames;
}

}  // namespace

void RunInput(std::string_view input) {
    if (input.empty()) {
        return;
    }
    const auto pieceSize = std::size_t{static_cast<unsigned char>(input.front())} + 1;
    input.remove_prefix(1);
    Require(Frames(input, pieceSize) == Frames(input, input.size()), "frames do not depend on the cuts");
}
