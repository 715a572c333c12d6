#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "Frames.h"
#include "local/FrameReader.h"

/// The frames of the local transport byte by byte.

namespace zyl::backbone::local {

namespace {

using namespace std::string_literals;

std::string SomeBody(std::size_t size) {
    std::string body(size, '\0');
    for (std::size_t index = 0; index < size; ++index) {
        body[index] = static_cast<char>(index * 7 + index / 251);
    }
    return body;
}

/// Every frame that comes out of `stream` when it arrives in pieces of the sizes that `next` gives. Looked at
/// after the last one, so that bytes which were moved or written over show.
std::vector<std::string> Frames(const std::string& stream, const std::function<std::size_t()>& next) {
    FrameReader reader;
    std::vector<FrameView> views;
    for (std::size_t at = 0; at < stream.size();) {
        const std::span<char> room = reader.Room();
        const std::size_t piece = std::min({next(), room.size(), stream.size() - at});
        std::copy_n(stream.data() + at, piece, room.data());
        at += piece;
        reader.Received(piece);
        while (std::optional<FrameView> view = reader.Next()) {
            views.push_back(std::move(*view));
        }
    }
    std::vector<std::string> frames;
    frames.reserve(views.size());
    for (const FrameView& view : views) {
        frames.push_back(std::to_string(static_cast<int>(view.kind)) + view.type + ":" +
                         std::string(view.body.data(), view.body.size()));
    }
    return frames;
}

TEST(FrameReader, GivesTheSameFramesHoweverTheStreamIsCut) {
    const std::string greeting = GreetingFrame({kProtocolVersion, {1, 2}, 4711, "host", "user", "solver"});
    const std::string bells(3, kBell);
    std::string stream = bells + greeting + bells + DropBlockFrame(7) + bells;
    std::vector<std::string> expected = {"1:" + greeting.substr(kFrameHeaderSize + 1), "6:\7\0\0\0"s};
    const auto check = [&](std::size_t first, std::size_t others) {
        ASSERT_EQ(Frames(stream, [&] { return std::exchange(first, others); }), expected)
            << "cut after " << first << " bytes, and in pieces of " << others;
    };
    for (const std::size_t size : {0, 2, 100, 300'000, 3'000'000}) {
        const std::string type(size % 301, 'T');
        stream += MessageFrame(type, SomeBody(size));
        expected.push_back("3" + type + ":" + SomeBody(size));
        for (std::size_t at = 1; at <= stream.size() && size < 1000; ++at) {
            check(at, stream.size());
            check(at, at);
        }
    }
    for (const std::size_t piece : {std::size_t{1000}, std::size_t{70001}, stream.size()}) {
        check(piece, piece);
    }
}

TEST(FrameReader, TakesNoMemoryForWhatIsOnlyAnnounced) {
    FrameReader reader;
    const std::string header = Header(3, 1, 0x7fffffff);
    std::copy(header.begin(), header.end(), reader.Room().begin());
    reader.Received(header.size());
    for (std::size_t received = header.size(); received < 10'000'000;) {
        const std::size_t room = reader.Room().size();
        ASSERT_LE(room, 2 * received + 1'000'000);
        reader.Received(room);
        received += room;
        ASSERT_FALSE(reader.Next());
    }
}

}  // namespace

}  // namespace zyl::backbone::local
