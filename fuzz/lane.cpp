// A peer that writes anything at all into a lane's shared pages: an input is a script of what it writes there
// between the steps of an honest writer and an honest reader.
#include <algorithm>
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

}  // namespace

void RunInput(std::string_view input) {
    Script script(input);
    const auto memory = std::make_shared<HeapMemory>(kShape.Memory());
    LaneWriter writer(memory, kShape);
    LaneReader reader(memory, kShape);
    std::deque<LaneMessage> held;  // looked at however long ago they were handed out
    try {
        while (!script.IsOver()) {
            switch (script.Next<std::uint8_t>() % 4) {
                case 0: {
                    const std::span<char> room = memory->Bytes().subspan(script.Next<std::uint16_t>());
                    const std::string_view bytes = script.Bytes(script.Next<std::uint8_t>());
                    std::copy_n(bytes.begin(), std::min(bytes.size(), room.size()), room.begin());
                    break;
                }
                case 1: {
                    const std::size_t size = 1 + script.Next<std::uint16_t>() % kShape.LongestRecord();
                    const std::string type(script.Next<std::uint8_t>(), 't');
                    void* const room = writer.Fits(type.size() + 1, size)
                                           ? writer.Reserve(type.c_str(), type.size() + 1, size)
                                           : nullptr;
                    if (room != nullptr) {
                        std::memset(room, 'b', size);
                        writer.Publish(script.Next<std::uint8_t>());
                    }
                    break;
                }
                case 2:
                    if (std::optional<LaneMessage> message = reader.Take()) {
                        held.push_back(message->Copy());
                        held.push_back(std::move(*message));
                    }
                    for (const LaneMessage& message : held) {
                        const std::string seen =
                            message.type + std::string(message.body.data(), message.body.size());
                        Require(seen.size() <= kShape.ring, "a message lies within the ring");
                    }
                    if (held.size() > 4) {
                        held.pop_front();
                    }
                    break;
                default:
                    held.clear();
                    reader.GiveBack();
            }
        }
    } catch (const BadFrame&) {
    }
}
