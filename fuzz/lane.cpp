// A peer that writes anything at all into a lane's shared pages: an input is a script of what it does,
// between the honest steps of this side, which first reads from it and then writes to it.
#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <memory>
#include <string>

#include "Fuzz.h"
#include "HeapMemory.h"
#include "local/Lane.h"

namespace {

using namespace zyl::backbone::local;

constexpr LaneShape kShape{std::size_t{64} * 1024, 4096};

/// Takes the numbers of a script; zeros when it is at its end.
class Script {
  public:
    explicit Script(std::string_view bytes) : m_rest(bytes) {}
    bool IsOver() const { return m_rest.empty(); }
    std::string_view Bytes(std::size_t size) {
        const std::string_view taken = m_rest.substr(0, size);
        m_rest.remove_prefix(taken.size());
        return taken;
    }
    template <class Integer>
    Integer Next() {
        Integer value = 0;
        const std::string_view taken = Bytes(sizeof value);
        std::memcpy(&value, taken.data(), taken.size());
        return value;
    }

  private:
    std::string_view m_rest;
};

struct SharedPages {
    std::shared_ptr<HeapMemory> memory = std::make_shared<HeapMemory>(kShape.Memory());
    LaneHead& head = *reinterpret_cast<LaneHead*>(memory->Bytes().data());

    void Write(std::uint64_t position, std::string_view bytes) const {
        const std::span<char> room = memory->Bytes().subspan(kLaneHead + position % kShape.ring);
        std::copy_n(bytes.begin(), std::min(bytes.size(), room.size()), room.begin());
    }
};

/// Puts a record's head with the script's fields at the writer's position and publishes what the script says.
void WriteRecord(SharedPages& pages, Script& script) {
    const std::uint64_t at = pages.head.written.Load();
    const std::array<std::uint32_t, 6> head = {script.Next<std::uint8_t>(),  script.Next<std::uint16_t>(),
                                               script.Next<std::uint16_t>(), script.Next<std::uint32_t>(),
                                               script.Next<std::uint32_t>(), 0};
    pages.Write(at, {reinterpret_cast<const char*>(head.data()), sizeof head});
    pages.head.written.Store(at + std::uint64_t{64} * script.Next<std::uint16_t>());
}

void ReadFromHostileWriter(Script& script) {
    SharedPages pages;
    std::deque<LaneMessage> held;  // looked at however long ago they were handed out
    LaneReader reader(pages.memory, kShape);
    while (!script.IsOver()) {
        switch (script.Next<std::uint8_t>() % 8) {
            case 0:
                return;
            case 1:
                if (std::optional<LaneMessage> message = reader.Take()) {
                    held.push_back(std::move(*message));
                }
                for (const LaneMessage& message : held) {
                    volatile char seen = message.type[std::strlen(message.type)];
                    seen = message.body.empty()
                               ? seen
                               : static_cast<char>(message.body.front() + message.body.back());
                }
                if (held.size() > 2) {
                    held.pop_front();
                }
                break;
            case 2:
                held.clear();
                break;
            case 3:
                reader.GiveBack();
                break;
            case 4:
                pages.head.written.Store(script.Next<std::uint64_t>());
                break;
            case 5:
                pages.head.wanted.Store(script.Next<std::uint64_t>());
                break;
            case 6: {
                const std::uint64_t at = script.Next<std::uint32_t>();
                pages.Write(at, script.Bytes(script.Next<std::uint8_t>()));
                break;
            }
            default:
                WriteRecord(pages, script);
        }
    }
}

void WriteToHostileReader(Script& script) {
    SharedPages pages;
    LaneWriter writer(pages.memory, kShape);
    while (!script.IsOver()) {
        const std::uint8_t step = script.Next<std::uint8_t>();
        if (step % 2 == 0) {
            pages.head.read.Store(step % 4 == 0 ? script.Next<std::uint64_t>() : pages.head.written.Load());
            continue;
        }
        const std::size_t size = 1 + script.Next<std::uint16_t>() % kShape.LongestRecord();
        const std::string type(script.Next<std::uint16_t>() % 4096, 't');
        void* const room = writer.Fits(type.size() + 1, size)
                               ? writer.Reserve(type.c_str(), type.size() + 1, size)
                               : nullptr;
        if (room != nullptr) {
            std::memset(room, 'b', size);
            writer.Publish(step);
        }
    }
}

}  // namespace

void RunInput(std::string_view input) {
    Script script(input);
    try {
        ReadFromHostileWriter(script);
        WriteToHostileReader(script);
    } catch (const BadFrame&) {
    }
}
