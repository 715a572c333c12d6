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

using zyl::backbone::local::BadFrame;
using zyl::backbone::local::kLaneHead;
using zyl::backbone::local::LaneHead;
using zyl::backbone::local::LaneMessage;
using zyl::backbone::local::LaneReader;
using zyl::backbone::local::LaneShape;
using zyl::backbone::local::LaneWriter;

constexpr LaneShape kShape{std::size_t{64} * 1024, 4096};

/// Takes the numbers of a script; zeros when it is at its end.
class Script {
  public:
    explicit Script(std::string_view bytes) : m_rest(bytes) {}
    bool IsOver() const { return m_rest.empty(); }
    template <class Integer>
    Integer Next() {
        Integer value = 0;
        const std::string_view taken = m_rest.substr(0, sizeof value);
        std::memcpy(&value, taken.data(), taken.size());
        m_rest.remove_prefix(taken.size());
        return value;
    }
    std::string_view Bytes(std::size_t size) {
        const std::string_view taken = m_rest.substr(0, size);
        m_rest.remove_prefix(taken.size());
        return taken;
    }

  private:
    std::string_view m_rest;
};

/// Looks at the messages that were handed out last, however long ago.
class Reader {
  public:
    explicit Reader(const std::shared_ptr<HeapMemory>& memory) : m_reader(memory, kShape) {}
    void Take() {
        if (std::optional<LaneMessage> message = m_reader.Take()) {
            m_seen = m_seen + static_cast<int>(std::strlen(message->type));
            m_held.push_back(std::move(*message));
        }
        for (const LaneMessage& message : m_held) {
            m_seen = m_seen + (message.body.empty() ? 0 : message.body.front() + message.body.back());
        }
        if (m_held.size() > 2) {
            m_held.pop_front();
        }
    }
    void LetGo() { m_held.clear(); }
    LaneReader& Lane() { return m_reader; }

  private:
    std::deque<LaneMessage> m_held;
    LaneReader m_reader;
    volatile int m_seen = 0;
};

struct SharedPages {
    std::shared_ptr<HeapMemory> memory = std::make_shared<HeapMemory>(kShape.Memory());
    LaneHead& head = *reinterpret_cast<LaneHead*>(memory->Bytes().data());

    char* At(std::uint64_t position) const {
        return memory->Bytes().data() + kLaneHead + position % kShape.ring;
    }
    static std::size_t UpToTheEnd(std::uint64_t position) { return kShape.ring - position % kShape.ring; }
};

/// Puts a record's head with the script's fields at the writer's position and publishes what the script says.
void WriteRecord(SharedPages& pages, Script& script) {
    const std::uint64_t at = pages.head.written.Load();
    const std::array<std::uint32_t, 6> head = {script.Next<std::uint8_t>(),  script.Next<std::uint16_t>(),
                                               script.Next<std::uint16_t>(), script.Next<std::uint32_t>(),
                                               script.Next<std::uint32_t>(), 0};
    std::memcpy(pages.At(at), head.data(), std::min(sizeof head, pages.UpToTheEnd(at)));
    pages.head.written.Store(at + std::uint64_t{64} * script.Next<std::uint16_t>());
}

void ReadFromHostileWriter(Script& script) {
    SharedPages pages;
    Reader reader(pages.memory);
    while (!script.IsOver()) {
        switch (script.Next<std::uint8_t>() % 8) {
            case 0:
                return;
            case 1:
                reader.Take();
                break;
            case 2:
                reader.LetGo();
                break;
            case 3:
                reader.Lane().GiveBack();
                break;
            case 4:
                pages.head.written.Store(script.Next<std::uint64_t>());
                break;
            case 5:
                pages.head.wanted.Store(script.Next<std::uint64_t>());
                break;
            case 6: {
                const std::uint64_t at = script.Next<std::uint32_t>();
                const std::string_view bytes = script.Bytes(script.Next<std::uint8_t>());
                std::copy_n(bytes.begin(), std::min(bytes.size(), pages.UpToTheEnd(at)), pages.At(at));
                break;
            }
            default:
                WriteRecord(pages, script);
                break;
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
        if (!writer.Fits(type.size() + 1, size)) {
            continue;
        }
        if (char* const room = static_cast<char*>(writer.Reserve(type.c_str(), type.size() + 1, size))) {
            room[size / 2] = room[size - 1] = 'b';
            writer.Publish(step);
        }
    }
}

}  // namespace

void RunInput(std::string_view input) {
    Script script(input);
    try {
        ReadFromHostileWriter(script);
        if (!script.IsOver()) {
            WriteToHostileReader(script);
        }
    } catch (const BadFrame&) {
    }
}
