#include "local/Lane.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstring>
#include <functional>
#include <new>
#include <string>

/// A lane at the byte level, with both ends in one process; and what a peer that writes anything at all can
/// do.

namespace {

using namespace zyl::backbone::local;
using zyl::backbone::Progress;

std::string Body(std::size_t size) {
    std::string body(size, '\0');
    for (std::size_t index = 0; index < size; ++index) {
        body[index] = static_cast<char>(index * 31 + size);
    }
    return body;
}

class Lane : public ::testing::Test {
  protected:
    bool Send(const std::string& type, const std::string& body) {
        void* room = m_writer.Reserve(type.c_str(), body.size());
        if (room == nullptr) {
            return false;
        }
        std::memcpy(room, body.data(), body.size());
        return m_writer.Commit() == Progress::kDone;
    }
    void HoldOne(LaneReader& reader, std::size_t size) {
        const std::string type(39, 't');  // with its header the whole of a cache line
        ASSERT_TRUE(Send(type, Body(size)));
        const std::optional<LaneMessage> held = reader.Take();
        for (int number = 0; number < 30; ++number) {
            ASSERT_TRUE(Send("other", Body(90'000)));
            ASSERT_TRUE(reader.Take());
        }
        EXPECT_EQ(held->type, type);
        EXPECT_EQ(Text(*held), Body(size));
    }
    LanePositions& Positions() { return *new (m_foreign.Head()) LanePositions; }
    static std::string Text(const LaneMessage& message) { return {message.body.data(), message.body.size()}; }

    FileDescriptor m_memory = MakeSharedMemory(kLaneMemory);
    Mapping m_foreign{m_memory, kPageSize, kRingSize};
    LaneWriter m_writer{Mapping(m_memory, kPageSize, kRingSize)};
    LaneReader m_reader{Mapping(m_memory, kPageSize, kRingSize)};
};

TEST_F(Lane, BodiesOfEverySizeCrossManyTimesRoundTheRingAndStartAligned) {
    std::size_t total = 0;
    for (std::size_t size = 0; total < 5 * kRingSize; size = size * 9 / 8 + 1) {
        size = size > 200'000 ? 0 : size;
        ASSERT_TRUE(Send("type of " + std::to_string(size), Body(size)));
        std::optional<LaneMessage> message = m_reader.Take();
        ASSERT_TRUE(message);
        EXPECT_EQ(message->type, "type of " + std::to_string(size));
        EXPECT_EQ(Text(*message), Body(size));
        const std::size_t boundary = size < 512 ? 8 : size < 16 * 1024 ? 64 : kPageSize;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(message->body.data()) % boundary, 0U);
        total += size + 64;
    }
}

TEST_F(Lane, WriterGetsRoomOnceTheReaderGivesItBackAndTheReaderIsTold) {
    int sent = 0;
    while (Send("t", Body(100'000))) {
        ++sent;
    }
    EXPECT_GE(sent, 8);
    EXPECT_FALSE(m_writer.HasRoom());
    for (const char* step : {"room", "more room, as the first may not have been enough"}) {
        m_reader.Take();
        m_reader.GiveBack();
        EXPECT_TRUE(m_reader.WriterWaits()) << step;
        EXPECT_FALSE(m_reader.WriterWaits()) << "it is woken once for each";
    }
    EXPECT_TRUE(m_writer.HasRoom());
    EXPECT_TRUE(Send("t", Body(100'000)));
    m_reader.Take();
    m_reader.GiveBack();
    EXPECT_FALSE(m_reader.WriterWaits()) << "it wants no more";
}

TEST_F(Lane, LongMessageTravelsInPieces) {
    const std::string body = Body(3 * kRingSize + 17);
    void* room = m_writer.Reserve("long", body.size());
    std::memcpy(room, body.data(), body.size());
    std::optional<LaneMessage> message;
    while (m_writer.Commit() != Progress::kDone) {
        EXPECT_FALSE(m_reader.Take());
        m_reader.GiveBack();
    }
    message = m_reader.Take();
    ASSERT_TRUE(message);
    EXPECT_STREQ(message->type, "long");
    EXPECT_EQ(Text(*message), body);
}

/// The second message is empty and ends a page, as the large ones all leave the ring at the same place in it.
TEST_F(Lane, MessageStaysAsItIsWhileLaterOnesFillItsPlace) {
    for (const std::size_t size : {5000, 0, 100}) {
        HoldOne(m_reader, size);
    }
}

#if !defined(__SANITIZE_ADDRESS__)  // whose own memory would be limited as well
TEST_F(Lane, MessageStaysAsItIsWhereTheRingCannotBeMappedAgain) {
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    Mapping mapping(m_memory, kPageSize, kRingSize);
    const rlimit nothingMore{0, before.rlim_max};
    setrlimit(RLIMIT_AS, &nothingMore);
    LaneReader reader(std::move(mapping));
    setrlimit(RLIMIT_AS, &before);
    for (const std::size_t size : {5000, 0, 100}) {
        HoldOne(reader, size);
    }
}
#endif

TEST_F(Lane, MessageOutlivesItsReader) {
    auto reader = std::make_unique<LaneReader>(Mapping(m_memory, kPageSize, kRingSize));
    ASSERT_TRUE(Send("held", Body(5000)));
    const std::optional<LaneMessage> held = reader->Take();
    reader.reset();
    EXPECT_STREQ(held->type, "held");
    EXPECT_EQ(Text(*held), Body(5000));
}

TEST_F(Lane, UnpublishedMessageIsInvisible) {
    std::memset(m_writer.Reserve("t", 100), 'x', 100);
    EXPECT_FALSE(m_reader.HasNews());
    EXPECT_FALSE(m_reader.Take());
}

TEST_F(Lane, NonsenseInTheSharedPagesIsRefused) {
    ASSERT_TRUE(Send("type", Body(100)));
    const std::string record(m_foreign.Tail(), 256);
    const auto number = [&](std::size_t offset, std::uint32_t value) {
        return [=, this] { std::memcpy(m_foreign.Tail() + offset, &value, sizeof value); };
    };
    const auto written = [&](std::uint64_t value) { return [=, this] { Positions().written.store(value); }; };
    const std::vector<std::pair<const char*, std::function<void()>>> cases = {
        {"kind none", number(0, 0)},
        {"kind unknown", number(0, 4)},
        {"further piece of nothing", number(0, 3)},
        {"no type", number(4, 0)},
        {"type too long", number(4, 65536)},
        {"type past its body", number(4, 1000)},
        {"body in the head", number(8, 8)},
        {"body past the written", number(8, 1u << 19)},
        {"body far off", number(8, 0xffffffff)},
        {"body too long", number(12, 200)},
        {"body longer than all", number(12, 0xffffffff)},
        {"message too long", number(16, 0x80000000)},
        {"written ahead of the ring", written(2 * kRingSize)},
        {"written behind", written(static_cast<std::uint64_t>(-64))},
        {"written off the boundary", written(193)},
    };
    for (const auto& [name, spoil] : cases) {
        SCOPED_TRACE(name);
        std::memcpy(m_foreign.Tail(), record.data(), record.size());
        Positions().written.store(192);
        spoil();
        LaneReader reader(Mapping(m_memory, kPageSize, kRingSize));
        EXPECT_THROW(reader.Take(), BadFrame);
    }
    for (const std::uint64_t read : {std::uint64_t{193}, ~std::uint64_t{0}}) {
        Positions().read.store(read);
        EXPECT_THROW(
            while (m_writer.Reserve("t", 200'000) != nullptr) { m_writer.Commit(); }, BadFrame);
    }
}

}  // namespace
