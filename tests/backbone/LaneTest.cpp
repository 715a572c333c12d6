// A lane at the byte level, with both ends in one process: on two threads, and with a peer that writes anything
// at all.

#include "local/Lane.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "HeapMemory.h"

namespace {

using namespace zyl::backbone::local;

void Send(LaneWriter& writer, const std::string& body) {
    void* const room = writer.Reserve("type", 5, body.size());
    ASSERT_NE(room, nullptr);
    std::memcpy(room, body.data(), body.size());
    writer.Publish(0);
}

TEST(Lane, TwoThreadsExchangeEverythingAlignedAndWithoutALostWakeUp) {
    constexpr int kCount = 200'000;
    const LaneShape shape{4096, 512};
    const auto memory = std::make_shared<HeapMemory>(shape.Memory());
    const auto body = [](int number) {
        return std::string(static_cast<std::size_t>(number * 37 % 700), static_cast<char>(number % 127));
    };
    std::atomic<int> bells = 0;
    std::atomic<int> notes = 0;
    const auto ring = [](std::atomic<int>& bell) {
        ++bell;
        bell.notify_one();
    };
    std::thread writing([&] {
        LaneWriter writer(memory, shape);
        for (int number = 0; number < kCount; ++number) {
            const std::string sent = body(number);
            int before = notes;
            void* room = nullptr;
            while ((room = writer.Reserve("t", 2, sent.size())) == nullptr) {
                if (writer.ReaderNeedsBell()) {
                    ring(bells);
                }
                notes.wait(before);
                before = notes;
            }
            std::memcpy(room, sent.data(), sent.size());
            if (writer.Publish(0)) {
                ring(bells);
            }
        }
    });
    LaneReader reader(memory, shape);
    const auto tellOfRoom = [&] {
        if (reader.WriterWaits()) {
            ring(notes);
        }
    };
    for (int number = 0; number < kCount;) {
        const int before = bells;
        if (const std::optional<LaneMessage> message = reader.Take()) {
            EXPECT_EQ(std::string(message->body.data(), message->body.size()), body(number++));
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(message->body.data()) %
                          (message->body.size() < 512 ? 8 : kCacheLine),
                      0U);
        } else {
            reader.Asleep();
            StoreLoadFence();
            reader.GiveBack();
            tellOfRoom();
            if (!reader.HasNews()) {
                bells.wait(before);
            }
            reader.Awake();
        }
        tellOfRoom();
    }
    writing.join();
}

TEST(Lane, NonsenseInTheSharedMemoryIsRefused) {
    const LaneShape shape{4096, 512};
    const auto memory = std::make_shared<HeapMemory>(shape.Memory());
    LaneWriter writer(memory, shape);
    LaneHead& head = *reinterpret_cast<LaneHead*>(memory->Bytes().data());
    char* const ring = memory->Bytes().data() + kLaneHead;
    Send(writer, std::string(100, 'b'));
    const std::string record(ring, 256);
    const struct {
        const char* name;
        std::size_t offset;  ///< of a number in the record
        std::uint32_t value;
        std::uint64_t written = 192;
    } kCases[] = {
        {"kind none", 0, 0},
        {"kind unknown", 0, 4},
        {"nothing with a type", 0, 3},
        {"no type", 4, 0},
        {"type too long", 4, 65536},
        {"type past its body", 4, 1000},
        {"body in the head", 8, 8},
        {"body past the written", 8, 512},
        {"body far off", 8, 0xffffffff},
        {"body too long", 12, 200},
        {"body longer than all", 12, 0xffffffff},
        {"block too long", 16, 0x80000000},
        {"written ahead of the ring", 0, 1, 2 * 4096},
        {"written behind", 0, 1, static_cast<std::uint64_t>(-64)},
        {"written off the boundary", 0, 1, 193},
    };
    for (const auto& [name, offset, value, written] : kCases) {
        SCOPED_TRACE(name);
        std::memcpy(ring, record.data(), record.size());
        std::memcpy(ring + offset, &value, sizeof value);
        head.written.Store(written);
        LaneReader reader(memory, shape);
        EXPECT_THROW(reader.Take(), BadFrame);
    }
    for (const std::uint64_t read : {std::uint64_t{193}, ~std::uint64_t{0}}) {
        head.read.Store(read);
        EXPECT_THROW(
            while (writer.Reserve("t", 2, 1000) != nullptr) { writer.Publish(0); }, BadFrame);
    }
}

}  // namespace
