#include "Liar.h"

#include <algorithm>
#include <cstring>

#include "SimulatedSystem.h"
#include "local/Frame.h"
#include "local/Lane.h"

namespace simulated {

using namespace zyl::backbone::local;
using namespace zyl::backbone::system;

namespace {

class Deaf final : public Watcher {
  public:
    void Ready(const Readiness& /*readiness*/) override {}
};

std::uint32_t Any(std::uint32_t count) {
    return std::max(World::Current().Draw(Kind::kRare, 1, count), 1U) - 1;
}

/// Most often small, or a multiple of a record's size; sometimes anything.
std::uint32_t Number() {
    const std::uint32_t numbers[]{Any(4), 24 + Any(16), 64 * Any(80), Any(1U << 31) * 2};
    return numbers[Any(4)];
}

/// A record's fields are numbers of four bytes; its type begins behind them.
void WriteNonsense(Memory& memory) {
    auto& head = *reinterpret_cast<LaneHead*>(memory.Bytes().data());
    const std::span<char> ring = memory.Bytes().subspan(kLaneHead);
    for (std::uint32_t records = Any(6); records > 0; --records) {
        const std::uint32_t plain[]{1 + Any(3), 2, 32, Any(30), Any(100), Any(3)};
        char* const record =
            ring.data() + kCacheLine * Any(static_cast<std::uint32_t>(ring.size() / kCacheLine));
        for (std::size_t field = 0; field < std::size(plain); ++field) {
            const std::uint32_t value = Any(8) == 0 ? Number() : plain[field];
            std::memcpy(record + 4 * field, &value, sizeof value);
        }
        record[24] = kLie;
    }
    head.wanted.Store(Number());
    head.controls.Store(Any(4));
    head.written.Store(Number());
}

std::string Frame(const std::string& name, std::uint32_t ring) {
    const std::string frames[]{AnnounceFrame({Any(20), name}),
                               LaneFrame(Any(4) == 0 ? Number() : ring),
                               BlockFrame({Any(3), ring}),
                               DropBlockFrame(Any(3)),
                               std::string("ZYLF\3\0\2\0\5\0\0\0?\0abcde", 19),
                               std::string(1 + Any(40), static_cast<char>(Any(256)))};
    return frames[Any(std::size(frames))];
}

}  // namespace

void Lie(Process& process, const std::string& domain, int times) {
    World& world = World::Current();
    SimulatedSystem system(process);
    Deaf deaf;
    const std::unique_ptr<Names> names = system.Join("", domain);
    names->Watch(deaf);
    for (; times > 0; --times) {
        world.Work(std::chrono::milliseconds(Any(3)));
        const std::vector<Entry> entries = names->List();
        if (entries.empty()) {
            continue;
        }
        const auto any = [&]() -> const Entry& {
            return entries[Any(static_cast<std::uint32_t>(entries.size()))];
        };
        const Entry& entry = any();
        const Names::Connection connection = names->Connect(entry);
        if (connection.channel == nullptr) {
            continue;
        }
        const Self& me = process.self;
        connection.channel->Watch(deaf);
        connection.channel->Send(
            GreetingFrame({kProtocolVersion, me.identity, me.pid, me.host, me.user, entry.name}));
        constexpr std::uint32_t kRings[]{512, 1024, 4096};
        const std::uint32_t ring = kRings[Any(3)];
        std::vector<std::unique_ptr<Memory>> memories;
        for (std::uint32_t frames = Any(8); frames > 0; --frames) {
            memories.push_back(system.MakeMemory(kLaneHead + ring));
            const std::string frame = Frame(any().name, ring);
            if (memories.back() == nullptr || Any(3) == 0) {
                connection.channel->Send(frame);
            } else {
                WriteNonsense(*memories.back());
                connection.channel->SendWithMemory(frame, *memories.back());
                WriteNonsense(*memories.back());
            }
            world.Work(std::chrono::milliseconds(Any(2) * Any(1500)));
        }
        if (Any(8) == 0) {
            world.Exit();
        }
    }
    world.Exit();
}

}  // namespace simulated
