#include "SimulatedSystem.h"

#include <algorithm>
#include <cstring>

#include "Arena.h"
#include "local/SharedWord.h"

namespace simulated {

using namespace zyl::backbone::system;

namespace {

class SimulatedMemory final : public Memory {
  public:
    explicit SimulatedMemory(Pages& pages) : m_pages(pages) { World::Current().Me().mapped += m_pages.size; }
    ~SimulatedMemory() override {
        World::Current().Fence();
        World::Current().Me().mapped -= m_pages.size;
    }
    std::span<char> Bytes() const override { return {m_pages.bytes.get(), m_pages.size}; }
    void Prepare(std::size_t offset, std::size_t size) override {
        if (offset + size > m_pages.size) {
            World::Current().Fail("memory is prepared that is not there");
        }
    }
    Pages& HandOver() {
        if (std::exchange(m_handedOver, true)) {
            World::Current().Fail("a memory is handed over twice");
        }
        return m_pages;
    }

  private:
    Pages& m_pages;
    bool m_handedOver = false;
};

class SimulatedChannel final : public Channel {
  public:
    explicit SimulatedChannel(End& end) : m_end(end) { m_end.owner = &m_world.Me(); }
    ~SimulatedChannel() override {
        m_world.Enter();
        if (m_world.Me().inReady) {
            m_world.Fail("a watcher destroys a channel while it is told");
        }
        m_end.owner = nullptr;
        m_end.watcher = nullptr;
        std::erase(m_world.Me().alerts, &m_end);
        m_world.Tell("closes channel {}", m_end.number);
        const arena::ForTheWorld ours;
        Kernel::Close(&m_end);
        m_world.Changed();
    }
    void Watch(Watcher& watcher) override {
        m_world.Enter();
        if (m_end.watcher != nullptr) {
            m_world.Fail("a channel is watched twice");
        }
        m_end.watcher = &watcher;
        m_end.Notify({.input = !m_end.bytes.empty(), .room = false, .end = m_end.other->copies == 0});
    }
    Moved Send(std::span<const char> bytes) override { return Send(bytes, nullptr); }
    Moved SendWithMemory(std::span<const char> bytes, Memory& memory) override {
        return Send(bytes, static_cast<SimulatedMemory*>(&memory));
    }
    Moved Receive(std::span<char> room) override {
        m_world.Enter();
        const arena::ForTheWorld ours;
        if (room.empty()) {
            m_world.Fail("there is no room to receive into");
        }
        if (m_world.Short(Fault::kReceive)) {
            m_world.Tell("receives from channel {}: short", m_end.number);
            return {Progress::kShortage};
        }
        if (m_end.bytes.empty()) {
            const bool ended = m_end.other->copies == 0;
            m_world.Tell("receives {} from channel {}", ended ? "the end" : "nothing", m_end.number);
            return {ended ? Progress::kEnded : Progress::kNotNow};
        }
        std::size_t most = std::min(room.size(), m_end.bytes.size());
        if (!m_end.parcels.empty()) {
            most = std::min(most, static_cast<std::size_t>(m_end.parcels.front().to - m_end.received));
        }
        const std::size_t count = SomeOf(most);
        std::memcpy(room.data(), m_end.bytes.data(), count);
        m_end.bytes.erase(0, count);
        m_end.received += count;
        if (!m_end.parcels.empty() && m_end.parcels.front().pages != nullptr &&
            m_end.parcels.front().from < m_end.received) {
            m_end.arrived.push_back(std::exchange(m_end.parcels.front().pages, nullptr));
        }
        if (!m_end.parcels.empty() && m_end.parcels.front().to == m_end.received) {
            m_end.parcels.pop_front();
        }
        if (m_end.other->wantsRoom &&
            m_end.bytes.size() + m_world.ItsWeather().roomTold <= m_world.ItsWeather().capacity) {
            m_end.other->wantsRoom = false;
            m_end.other->Notify({.room = true});
        }
        m_world.Changed();
        m_world.Tell("receives {} bytes from channel {}", count, m_end.number);
        return {Progress::kSome, count};
    }
    std::size_t Waiting() const override { return m_end.arrived.size(); }
    Arrival TakeMemory() override {
        m_world.Enter();
        if (m_end.arrived.empty()) {
            return {nullptr, "none came"};
        }
        Pages& pages = *m_end.arrived.front();
        m_end.arrived.pop_front();
        const bool isShort = m_world.Short(Fault::kTakeMemory);
        m_world.Tell("takes a memory from channel {}{}", m_end.number, isShort ? ": short" : "");
        if (isShort) {
            return {nullptr, "it cannot be mapped"};
        }
        return {std::make_unique<SimulatedMemory>(pages), ""};
    }
    bool HasEnded() override {
        m_world.Enter();
        return m_end.other->copies == 0;
    }

  private:
    Moved Send(std::span<const char> bytes, SimulatedMemory* memory);
    Moved Refuse() {
        m_end.wantsRoom = true;
        m_world.Tell("finds no room in channel {}", m_end.number);
        return {Progress::kNotNow};
    }
    std::size_t SomeOf(std::size_t most) {
        const std::uint32_t less =
            m_world.Draw(Kind::kShort, m_world.ItsWeather().shortTransfers, static_cast<std::uint32_t>(most));
        return less == 0 ? most : less;
    }

    World& m_world = World::Current();
    End& m_end;
};

Moved SimulatedChannel::Send(std::span<const char> bytes, SimulatedMemory* memory) {
    m_world.Enter();
    const arena::ForTheWorld ours;
    End& other = *m_end.other;
    if (bytes.empty()) {
        m_world.Fail("no bytes are sent");
    }
    if (other.copies == 0) {
        m_world.Tell("sends to channel {}, which has ended", m_end.number);
        return {Progress::kEnded};
    }
    const Weather& weather = m_world.ItsWeather();
    const std::uint64_t sent = other.received + other.bytes.size();
    const bool fresh = sent + bytes.size() <= weather.fresh;
    if (!fresh && m_world.Short(Fault::kSend)) {
        m_world.Tell("sends to channel {}: short", m_end.number);
        return {Progress::kShortage};
    }
    const std::size_t capacity = fresh ? weather.fresh : weather.capacity;
    if (other.bytes.size() >= capacity) {
        return Refuse();
    }
    if (!fresh && m_world.Draw(Kind::kRefusal, weather.refusals) != 0) {
        m_end.Notify({.room = true});
        return Refuse();
    }
    const std::size_t most = std::min(bytes.size(), capacity - other.bytes.size());
    const std::size_t count = fresh ? most : SomeOf(most);
    if (memory != nullptr) {
        other.parcels.push_back({sent, sent + count, &memory->HandOver()});
    }
    other.bytes.append(bytes.data(), count);
    other.Notify({.input = true});
    m_world.Changed();
    m_world.Tell("sends {} of {} bytes{} to channel {}", count, bytes.size(),
                 memory != nullptr ? " with a memory" : "", m_end.number);
    return {Progress::kSome, count};
}

class SimulatedNames final : public Names {
  public:
    explicit SimulatedNames(const std::string& domain)
        : m_domain(domain), m_listener(m_world.ItsKernel().Listen(domain, m_world.Me())) {}
    ~SimulatedNames() override {
        for (auto& [name, slot] : m_world.ItsKernel().SlotsOf(m_domain)) {
            m_world.Enter();
            if (slot.holder == &m_world.Me()) {
                m_world.Tell("gives up name {}", name);
                if (m_world.Draw(Kind::kRare, m_world.ItsWeather().rare) == 0) {
                    slot.entry.reset();
                }
                slot.holder = nullptr;
            }
        }
        m_world.Enter();
        m_listener.owner = nullptr;
        m_listener.watcher = nullptr;
        std::erase(m_world.Me().alerts, &m_listener);
        const arena::ForTheWorld ours;
        Kernel::Close(&m_listener);
        m_world.Changed();
    }
    /// Between the claim and what is written down somebody else may look, and this process may be killed.
    Claimed Claim(const std::string& name, bool announced) override {
        m_world.Enter();
        Slot& slot = m_world.ItsKernel().SlotOf(m_domain, name);
        if (slot.order > 0 && slot.busyUntil == Clock::time_point() &&
            m_world.Draw(Kind::kRare, m_world.ItsWeather().rare) != 0) {
            slot.busyUntil = m_world.Now() + std::chrono::milliseconds(1);
        }
        if (slot.holder != nullptr || m_world.Now() < slot.busyUntil) {
            m_world.Tell("finds name {} taken", name);
            return {false, slot.entry.value_or(Entry{})};
        }
        slot.holder = &m_world.Me();
        slot.busyUntil = {};
        slot.written = false;
        m_world.Tell("claims name {}", name);
        m_world.Enter();
        const arena::ForTheWorld ours;
        const Self& self = m_world.Me().self;
        slot.entry = Entry{name, self.identity, self.pid, self.host, announced, false, ++slot.order};
        slot.written = true;
        m_world.Changed();
        m_world.Tell("writes name {} down", name);
        return {true, *slot.entry};
    }
    void MarkWatcher(const std::string& name) override {
        m_world.Enter();
        Slot& slot = m_world.ItsKernel().SlotOf(m_domain, name);
        if (slot.holder != &m_world.Me()) {
            m_world.Fail("a name is marked that this process does not hold");
        }
        slot.entry->watches = true;
        m_world.Changed();
        m_world.Tell("marks name {}", name);
    }
    std::vector<Entry> List() override {
        std::vector<Entry> entries;
        for (const auto& [name, slot] : m_world.ItsKernel().SlotsOf(m_domain)) {
            m_world.Enter();
            if (slot.entry) {
                entries.push_back(*slot.entry);
            }
        }
        m_world.Tell("lists {} names", entries.size());
        return entries;
    }
    std::optional<Entry> Find(const std::string& name) override {
        m_world.Enter();
        std::optional<Entry> entry;
        if (!m_world.Short(Fault::kFind)) {
            entry = m_world.ItsKernel().SlotOf(m_domain, name).entry;
        }
        m_world.Tell("looks for name {}: {}", name,
                     entry ? fmt::format("life {}", entry->identity.low) : "nothing");
        return entry;
    }
    Holding IsHeld(const Entry& entry) override {
        m_world.Enter();
        constexpr std::array<const char*, 3> kTexts{"held", "not held", "unknown"};
        const Holding holding = Look(entry);
        m_world.Tell("asks whether life {} holds name {}: {}", entry.identity.low, entry.name,
                     kTexts.at(static_cast<std::size_t>(holding)));
        return holding;
    }
    Connection Connect(const Entry& entry) override {
        m_world.Enter();
        const arena::ForTheWorld ours;
        const auto tell = [&](const std::string& how) {
            m_world.Tell("connects to life {} for name {}: {}", entry.identity.low, entry.name, how);
        };
        if (m_world.Short(Fault::kConnect)) {
            m_world.Me().refused = true;
            tell("short");
            return {Reached::kNotNow};
        }
        Listener* const listener = m_world.ItsKernel().Find(m_domain, entry.identity);
        if (listener == nullptr) {
            tell("nobody");
            return {Reached::kNobody};
        }
        if (listener->queue.size() >= m_world.ItsWeather().backlog) {
            m_world.Me().refused = true;
            tell("no place in its queue");
            return {Reached::kNotNow};
        }
        const auto [mine, theirs] = m_world.ItsKernel().Connect();
        listener->queue.push_back(theirs);
        listener->Notify({.input = true});
        m_world.Changed();
        tell(fmt::format("channel {}", mine->number));
        return {Reached::kConnected, std::make_unique<SimulatedChannel>(*mine)};
    }
    void Watch(Watcher& watcher) override {
        m_world.Enter();
        m_listener.watcher = &watcher;
        m_listener.Notify({.input = !m_listener.queue.empty()});
    }
    Acceptance Accept() override {
        m_world.Enter();
        const arena::ForTheWorld ours;
        if (m_listener.queue.empty()) {
            return {Welcome::kNobody};
        }
        if (m_world.Short(Fault::kAccept)) {
            m_world.Tell("accepts: short");
            return {Welcome::kShortage, nullptr, "no place"};
        }
        End& end = *m_listener.queue.front();
        const bool empty = end.other->copies == 0 && end.bytes.empty();
        if (m_world.Draw(Kind::kRare, m_world.ItsWeather().rare) != 0) {
            m_world.Tell("accepts: refused");
            if (empty) {
                m_listener.queue.pop_front();
                Kernel::Close(&end);
            }
            return {Welcome::kRefused};
        }
        m_listener.queue.pop_front();
        m_world.Changed();
        m_world.Tell("accepts channel {}", end.number);
        const int pid = end.other->owner != nullptr ? end.other->owner->self.pid : 0;
        return {Welcome::kAccepted, std::make_unique<SimulatedChannel>(end), "", pid};
    }
    std::string Place() const override { return "a simulated place"; }

  private:
    Holding Look(const Entry& entry) {
        if (m_world.Short(Fault::kIsHeld)) {
            m_world.Me().refused = true;
            return Holding::kUnknown;
        }
        const Slot& slot = m_world.ItsKernel().SlotOf(m_domain, entry.name);
        if (slot.holder != nullptr && !slot.written &&
            m_world.Draw(Kind::kRare, m_world.ItsWeather().rare) != 0) {
            m_world.Me().refused = true;
            return Holding::kUnknown;
        }
        return slot.holder != nullptr && slot.holder->self.identity == entry.identity ? Holding::kYes
                                                                                      : Holding::kNo;
    }

    World& m_world = World::Current();
    const std::string m_domain;
    Listener& m_listener;
};

}  // namespace

Clock::time_point SimulatedSystem::Now() {
    World::Current().Point();
    World::Current().Pass(std::chrono::nanoseconds(50));
    return World::Current().Now();
}

Clock::time_point SimulatedSystem::RoughlyNow() {
    constexpr std::chrono::milliseconds kTick{4};
    World::Current().Point();
    const Clock::duration now = World::Current().Now().time_since_epoch();
    return Clock::time_point(now - now % kTick);
}

void SimulatedSystem::Pause() {
    World::Current().Point();
    World::Current().Pass(std::chrono::microseconds(1));
}

std::unique_ptr<Names> SimulatedSystem::Join(const std::string& /*base*/, const std::string& domain) {
    World& world = World::Current();
    world.Enter();
    const arena::ForTheWorld ours;
    const bool sweeps = world.Draw(Kind::kRare, world.ItsWeather().rare) != 0;
    world.Tell("joins domain {}{}", domain, sweeps ? " and sweeps it" : "");
    for (auto& [name, slot] : world.ItsKernel().SlotsOf(domain)) {
        if (sweeps && slot.holder == nullptr) {
            slot.entry.reset();
        }
    }
    return std::make_unique<SimulatedNames>(domain);
}

std::unique_ptr<Memory> SimulatedSystem::MakeMemory(std::size_t size) {
    World& world = World::Current();
    world.Enter();
    const arena::ForTheWorld ours;
    const bool isShort = world.Short(Fault::kMakeMemory);
    world.Tell("makes a memory of {} bytes{}", size, isShort ? ": short" : "");
    return isShort ? nullptr : std::make_unique<SimulatedMemory>(world.ItsKernel().Make(size));
}

void SimulatedSystem::Wait(Deadline deadline) {
    World& world = World::Current();
    world.Enter();
    if (m_process.inReady) {
        world.Fail("a watcher waits while it is told");
    }
    if (TellAll() || std::exchange(m_process.woken, false)) {
        return;
    }
    if (deadline && *deadline <= world.Now()) {
        world.Tell("waits not at all");
        return;
    }
    if (world.Draw(Kind::kSpurious, world.ItsWeather().spurious) != 0) {
        world.Tell("wakes without a reason");
        return;
    }
    if (deadline) {
        world.Tell("waits for {} us",
                   std::chrono::duration_cast<std::chrono::microseconds>(*deadline - world.Now()).count());
    } else {
        world.Tell("waits");
    }
    world.Block(deadline);
    world.Enter();
    m_process.woken = false;
    TellAll();
}

/// Tells every watcher what is pending; whether there was one.
bool SimulatedSystem::TellAll() {
    World& world = World::Current();
    std::vector<Source*> alerts = std::exchange(m_process.alerts, {});
    if (alerts.empty()) {
        return false;
    }
    const std::uint32_t turn = world.Draw(Kind::kOrder, 2, static_cast<std::uint32_t>(alerts.size()));
    std::rotate(alerts.begin(), alerts.begin() + turn % static_cast<std::uint32_t>(alerts.size()),
                alerts.end());
    m_process.inReady = true;
    for (Source* source : alerts) {
        source->queued = false;
        const Readiness news = std::exchange(source->pending, {});
        world.Tell("is told of channel {}:{}{}{}", source->number, news.input ? " input" : "",
                   news.room ? " room" : "", news.end ? " end" : "");
        world.Changed();
        source->watcher->Ready(news);
        if (world.Draw(Kind::kSpurious, world.ItsWeather().spurious) != 0) {
            source->Notify({.input = true, .room = true});
        }
    }
    m_process.inReady = false;
    return true;
}

}  // namespace simulated

namespace zyl::backbone::local {

std::uint64_t SimulatedLoad(const std::atomic<std::uint64_t>& word) {
    return simulated::World::Current().Load(word);
}

void SimulatedStore(std::atomic<std::uint64_t>& word, std::uint64_t value) {
    simulated::World::Current().Store(word, value);
}

void SimulatedFence() {
    simulated::World::Current().Fence();
}

}  // namespace zyl::backbone::local
