#include "local/Lane.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "HeapMemory.h"

/// A lane at the byte level, with both ends in one process; and what a peer that writes anything at all can
/// do.

namespace {

using namespace zyl::backbone::local;

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
        void* room = m_writer.Reserve(type.c_str(), type.size() + 1, body.size());
        if (room == nullptr) {
            return false;
        }
        std::memcpy(room, body.data(), body.size());
        m_writer.Publish(0);
        return true;
    }
    LaneHead& Head() { return *reinterpret_cast<LaneHead*>(m_memory->Bytes().data()); }
    char* Ring() { return m_memory->Bytes().data() + kLaneHead; }
    static std::string Text(const LaneMessage& message) { return {message.body.data(), message.body.size()}; }

    LaneShape m_shape{std::size_t{2} << 20, std::size_t{64} << 10};
    std::shared_ptr<HeapMemory> m_memory = std::make_shared<HeapMemory>(m_shape.Memory());
    LaneWriter m_writer{m_memory, m_shape};
};

TEST_F(Lane, BodiesOfEverySizeCrossManyTimesRoundTheRingAndStartAligned) {
    LaneReader reader(m_memory, m_shape);
    std::size_t total = 0;
    for (std::size_t size = 0; total < 5 * m_shape.ring; size = size * 9 / 8 + 1) {
        size = m_writer.Fits(40, size) ? size : 0;
        ASSERT_TRUE(Send("type of " + std::to_string(size), Body(size)));
        const std::optional<LaneMessage> message = reader.Take();
        ASSERT_TRUE(message);
        EXPECT_EQ(message->type, "type of " + std::to_string(size));
        EXPECT_EQ(Text(*message), Body(size));
        const std::size_t boundary = size < 512 ? 8 : size < 16 * 1024 ? 64 : 4096;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(message->body.data()) % boundary, 0U);
        total += size + 64;
    }
}

TEST_F(Lane, NonsenseInTheSharedMemoryIsRefused) {
    ASSERT_TRUE(Send("type", Body(100)));
    const std::string record(Ring(), 256);
    const auto number = [&](std::size_t offset, std::uint32_t value) {
        return [=, this] { std::memcpy(Ring() + offset, &value, sizeof value); };
    };
    const auto written = [&](std::uint64_t value) { return [=, this] { Head().written.Store(value); }; };
    const std::vector<std::pair<const char*, std::function<void()>>> cases = {
        {"kind none", number(0, 0)},
        {"kind unknown", number(0, 4)},
        {"nothing with a type", number(0, 3)},
        {"no type", number(4, 0)},
        {"type too long", number(4, 65536)},
        {"type past its body", number(4, 1000)},
        {"body in the head", number(8, 8)},
        {"body past the written", number(8, 1u << 19)},
        {"body far off", number(8, 0xffffffff)},
        {"body too long", number(12, 200)},
        {"body longer than all", number(12, 0xffffffff)},
        {"block too long", number(16, 0x80000000)},
        {"written ahead of the ring", written(2 * m_shape.ring)},
        {"written behind", written(static_cast<std::uint64_t>(-64))},
        {"written off the boundary", written(193)},
    };
    for (const auto& [name, spoil] : cases) {
        SCOPED_TRACE(name);
        std::memcpy(Ring(), record.data(), record.size());
        Head().written.Store(192);
        spoil();
        LaneReader reader(m_memory, m_shape);
        EXPECT_THROW(reader.Take(), BadFrame);
    }
    for (const std::uint64_t read : {std::uint64_t{193}, ~std::uint64_t{0}}) {
        Head().read.Store(read);
        EXPECT_THROW(while (Send("t", Body(200'000))){}, BadFrame);
    }
}

}  // namespace
