// What a stranger sends to the socket of an application. The first byte of an input is the size of the pieces
// in which the rest arrives; in one piece it must come to the same.
#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "Fuzz.h"
#include "local/FrameReader.h"

namespace {

using namespace zyl::backbone::local;

/// All of a frame, and the complaint where its body is not what its kind asks for.
std::string Text(const FrameView& frame) {
    std::string text = std::to_string(static_cast<int>(frame.kind)) + frame.type + '\0';
    text.append(frame.body.data(), frame.body.size());
    try {
        switch (frame.kind) {
            case FrameKind::kGreeting:
                return text + ReadGreeting(frame.body).application;
            case FrameKind::kAnnounce:
                return text + ReadAnnouncement(frame.body).application;
            case FrameKind::kLane:
                return text + std::to_string(ReadLane(frame.body));
            case FrameKind::kBlock:
                return text + std::to_string(ReadBlock(frame.body).size);
            case FrameKind::kDropBlock:
                return text + std::to_string(ReadDropBlock(frame.body));
            case FrameKind::kMessage:
                break;
        }
        return text;
    } catch (const BadFrame& bad) {
        return text + bad.what();
    }
}

/// Every frame up to the first that cannot be one, whose complaint stands first. Frames are looked at after
/// the last one, so that bytes which were moved or written over show.
std::vector<std::string> Frames(std::string_view stream, std::size_t pieceSize) {
    FrameReader reader;
    std::vector<FrameView> views;
    std::vector<std::string> frames;
    try {
        for (std::size_t at = 0; at < stream.size();) {
            const std::span<char> room = reader.Room();
            Require(!room.empty(), "there is always room");
            Require(room.size() < 2 * at + 1'000'000, "what is only announced takes no memory");
            const std::size_t size = std::min({pieceSize, room.size(), stream.size() - at});
            std::copy_n(stream.data() + at, size, room.begin());
            at += size;
            reader.Received(size);
            while (std::optional<FrameView> view = reader.Next()) {
                views.push_back(std::move(*view));
            }
        }
    } catch (const BadFrame& bad) {
        frames.emplace_back(bad.what());
    }
    std::transform(views.begin(), views.end(), std::back_inserter(frames), Text);
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
