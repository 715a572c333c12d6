// A peer that writes anything at all into a lane's shared pages: an input is a script of what it does,
// between the honest steps of this side, which first reads from it and then writes to it.
#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <new>
#include <string>

#include "Fuzz.h"
#include "local/Lane.h"

namespace {

using zyl::backbone::Progress;
using zyl::backbone::local::BadFrame;
using zyl::backbone::local::FileDescriptor;
using zyl::backbone::local::kLaneMemory;
using zyl::backbone::local::kPageSize;
using zyl::backbone::local::kRingSize;
using zyl::backbone::local::LaneMessage;
using zyl::backbone::local::LanePositions;
using zyl::backbone::local::LaneReader;
using zyl::backbone::local::LaneWriter;
using zyl::backbone::local::MakeSharedMemory;
using zyl::backbone::local::Mapping;

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
    explicit Reader(Mapping mapping) : m_reader(std::move(mapping)) {}
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
    FileDescriptor memory = MakeSharedMemory(kLaneMemory);
    Mapping hostile{memory, kPageSize, kRingSize};
    LanePositions& positions = *new (hostile.Head()) LanePositions;

    Mapping Map() const { return {memory, kPageSize, kRingSize}; }
    char* At(std::uint64_t position) const { return hostile.Tail() + position % kRingSize; }
};

/// A size that the reader refuses, or a moderate one: the fuzzer's allocator pays for every byte of it.
std::uint32_t MessageSize(std::uint32_t wanted) {
    return wanted > 0x7fffffff ? wanted : wanted % (std::uint32_t{1} << 24);
}

/// Puts a record's head with the script's fields at the writer's position and publishes what the script says.
void WriteRecord(SharedPages& pages, Script& script) {
    const std::uint64_t at = pages.positions.written;
    const std::array<std::uint32_t, 6> head = {script.Next<std::uint8_t>(),
                                               script.Next<std::uint16_t>(),
                                               script.Next<std::uint16_t>(),
                                               script.Next<std::uint32_t>(),
                                               MessageSize(script.Next<std::uint32_t>()),
                                               0};
    std::memcpy(pages.At(at), head.data(), sizeof head);
    pages.positions.written = at + std::uint64_t{64} * script.Next<std::uint16_t>();
}

void ReadFromHostileWriter(Script& script) {
    SharedPages pages;
    Reader reader(pages.Map());
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
                pages.positions.written = script.Next<std::uint64_t>();
                break;
            case 5:
                pages.positions.roomWanted = script.Next<std::uint32_t>();
                break;
            case 6: {
                char* const at = pages.At(script.Next<std::uint32_t>());
                const std::string_view bytes = script.Bytes(script.Next<std::uint8_t>());
                std::copy(bytes.begin(), bytes.end(), at);
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
    LaneWriter writer(pages.Map());
    bool blocked = false;
    while (!script.IsOver()) {
        const std::uint8_t step = script.Next<std::uint8_t>();
        if (step % 2 == 0) {
            pages.positions.read =
                step % 4 == 0 ? script.Next<std::uint64_t>() : pages.positions.written.load();
        } else if (blocked) {
            blocked = !writer.HasRoom() || writer.Commit() != Progress::kDone;
        } else {
            const std::size_t size = 1 + script.Next<std::uint32_t>() % (2 * kRingSize);
            const std::string type(script.Next<std::uint16_t>() % 65535, 't');
            if (char* const room = static_cast<char*>(writer.Reserve(type.c_str(), size))) {
                room[size / 2] = room[size - 1] = 'b';
                blocked = writer.Commit() != Progress::kDone;
            }
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
    } catch (const std::bad_alloc&) {
    }
}
