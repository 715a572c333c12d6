#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "Frames.h"
#include "local/FrameReader.h"

/// The frames of the local transport byte by byte.

namespace zyl::backbone::local {

namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;
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

TEST(FrameReader, NamesTheFieldThatIsWrong) {
    const struct {
        std::string frame;
        const char* complaint;
    } kCases[] = {
        {"GET / HTTP/1.1\r\n\r\n", "the frame's magic number is 542393671"},
        {Header(0, 1, 0), "the frame's kind is 0"},
        {Header(99, 1, 0), "the frame's kind is 99"},
        {Header(3, 0, 0), "the frame's type has no terminator"},
        {Header(3, 3, 0) + "abc", "the frame's type of 3 bytes does not end at its terminator"},
        {Header(3, 3, 0) + "a\0\0"s, "the frame's type of 3 bytes does not end at its terminator"},
        {Header(3, 1, 0x80000000), "the frame's body has 2147483648 bytes of at most 2147483647"},
        {Header(3, 1, 0xffffffff), "the frame's body has 4294967295 bytes of at most 2147483647"},
        {Header(1, 1, 16385), "the frame's body has 16385 bytes of at most 16384"},
        {Header(2, 1, 16385), "the frame's body has 16385 bytes of at most 16384"},
    };
    for (const auto& one : kCases) {
        EXPECT_THAT([&] { Frames(one.frame, [] { return std::size_t{1}; }); },
                    ThrowsMessage<BadFrame>(HasSubstr(one.complaint)));
    }
}

TEST(Greeting, IsReadAsItWasWrittenAndNamesTheFieldThatIsWrong) {
    const std::string body =
        GreetingFrame({kProtocolVersion, {3, 4}, -5, "a host", std::string(5000, 'u'), "target"})
            .substr(kFrameHeaderSize + 1);
    const Greeting greeting = ReadGreeting(body);
    EXPECT_EQ(greeting.identity, (system::Identity{3, 4}));
    EXPECT_EQ(greeting.pid, -5);
    EXPECT_EQ(greeting.host, "a host");
    EXPECT_EQ(greeting.user, std::string(5000, 'u'));
    EXPECT_EQ(greeting.application, "target");

    const struct {
        std::string body;
        const char* complaint;
    } kCases[] = {
        {"", "the field version needs 4 bytes of 0"},
        {"\377\0\0\0"s, "the peer speaks version 255, this process version "},
        {body.substr(0, 6), "the field identity needs 8 bytes of 2"},
        {body.substr(0, 22), "the field pid needs 4 bytes of 2"},
        {body.substr(0, 31), "the field host needs 6 bytes of 3"},
        {body.substr(0, 24) + "\xff\xff\xff\xff", "the field host needs 4294967295 bytes of 0"},
        {body.substr(0, body.size() - 1), "the field application needs 6 bytes of 5"},
    };
    for (const auto& one : kCases) {
        EXPECT_THAT([&] { ReadGreeting(one.body); }, ThrowsMessage<BadFrame>(HasSubstr(one.complaint)));
    }
}

}  // namespace

}  // namespace zyl::backbone::local
