#include "MemoryTransport.h"

#include <algorithm>
#include <cstring>

using namespace zyl::backbone;

namespace {

using Lock = std::unique_lock<std::mutex>;

struct Bytes final : MessageStorage {
    std::string type;
    std::vector<char> body;  // and the guard behind it
    std::size_t size;
};

class MemoryLink final : public Link {
  public:
    MemoryLink(MemoryHub& hub, std::shared_ptr<MemoryHub::Box> box, Peer peer, int number, bool announced)
        : m_hub(hub),
          m_box(std::move(box)),
          m_peer(std::move(peer)),
          m_number(number),
          m_announced(announced) {}

    const Peer& To() const override { return m_peer; }
    bool Announced() const override { return m_announced; }
    bool Alive() override {
        const Lock lock(m_hub.mutex);
        return m_box->alive;
    }
    void* Reserve(const char* type, int size) override {
        m_bytes = std::make_shared<Bytes>();
        m_bytes->type = type;
        m_bytes->size = static_cast<std::size_t>(size);
        m_bytes->body.resize(m_bytes->size + kGuardSize);
        return m_bytes->body.data();
    }
    std::optional<std::uint64_t> HeldUp() const override {
        const Lock lock(m_hub.mutex);
        return m_hub.heldUp[m_box->pid];
    }
    Progress Commit() override {
        const Lock lock(m_hub.mutex);
        if (!m_box->alive) {
            return Progress::kLost;
        }
        if (m_box->bytes > 0 && m_box->bytes + m_bytes->size > MemoryHub::kCapacity) {
            return Progress::kBlocked;
        }
        m_box->bytes += m_bytes->size + 1;
        m_box->queue.push_back(Message(m_number, m_bytes->type.c_str(), m_bytes->body.data(),
                                       static_cast<int>(m_bytes->size), m_bytes));
        m_hub.Stir();
        return Progress::kDone;
    }

  private:
    MemoryHub& m_hub;
    std::shared_ptr<MemoryHub::Box> m_box;
    Peer m_peer;
    int m_number;
    bool m_announced;
    std::shared_ptr<Bytes> m_bytes;
};

class MemoryDomain final : public Domain {
  public:
    MemoryDomain(MemoryHub& hub, std::string name, int pid) : m_hub(hub), m_name(std::move(name)) {
        const Lock lock(m_hub.mutex);
        m_box->pid = pid;
        m_hub.domains[m_name].push_back(m_box);
    }
    ~MemoryDomain() override {
        const Lock lock(m_hub.mutex);
        m_box->alive = false;
        auto& boxes = m_hub.domains[m_name];
        std::erase(boxes, m_box);
        for (const auto& box : boxes) {
            for (const auto& [application, entry] : m_box->applications) {
                auto peer = std::make_unique<Peer>(Peer{application, m_box->pid, "host", "user"});
                box->queue.emplace_back(PeerLost{std::move(peer), entry.second});
            }
        }
        m_hub.Stir();
    }

    void Announce(int number, const std::string& name, bool announced) override {
        const Lock lock(m_hub.mutex);
        for (const auto& box : m_hub.domains[m_name]) {
            if (box->applications.contains(name)) {
                throw NameTaken(box->pid, "host");
            }
        }
        m_box->applications[name] = {number, announced};
        m_box->delivered.resize(static_cast<std::size_t>(number) + 1);
        m_hub.Stir();
    }
    void Deliver(int number) override {
        const Lock lock(m_hub.mutex);
        m_box->delivered[static_cast<std::size_t>(number)] = true;
    }
    void Watch(int /*number*/) override {}

    std::unique_ptr<Link> Open(const std::string& target) override {
        const Lock lock(m_hub.mutex);
        for (const auto& box : m_hub.domains[m_name]) {
            if (const auto found = box->applications.find(target); found != box->applications.end()) {
                const auto [number, announced] = found->second;
                return std::make_unique<MemoryLink>(m_hub, box, Peer{target, box->pid, "host", "user"},
                                                    number, announced);
            }
        }
        return nullptr;
    }

    bool OwesLossOf(const std::string& name) override {
        const Lock lock(m_hub.mutex);
        return std::any_of(m_box->queue.begin(), m_box->queue.end(), [&](const Event& event) {
            const auto* lost = std::get_if<PeerLost>(&event);
            return lost != nullptr && lost->peer->application == name;
        });
    }
    std::optional<Event> Next(Take take) override {
        const Lock lock(m_hub.mutex);
        auto& queue = m_box->queue;
        const auto wanted = std::find_if(queue.begin(), queue.end(), [&](const Event& event) {
            const auto* message = std::get_if<Message>(&event);
            return message == nullptr || take == Take::kAll ||
                   m_box->delivered[static_cast<std::size_t>(message->Application())];
        });
        if (wanted == queue.end()) {
            return std::nullopt;
        }
        Event event = std::move(*wanted);
        queue.erase(wanted);
        if (const auto* message = std::get_if<Message>(&event)) {
            m_box->bytes -= static_cast<std::size_t>(message->Size()) + 1;
        }
        m_hub.Stir();
        return event;
    }
    std::string WhereItLooks() const override { return "it looks in its memory"; }

  private:
    MemoryHub& m_hub;
    std::string m_name;
    std::shared_ptr<MemoryHub::Box> m_box = std::make_shared<MemoryHub::Box>();
};

class MemoryTransport final : public Transport {
  public:
    explicit MemoryTransport(MemoryHub& hub) : m_hub(hub) {
        const Lock lock(m_hub.mutex);
        m_pid = ++m_hub.lastPid;
    }
    std::unique_ptr<Domain> Join(const std::string& name) override {
        return std::make_unique<MemoryDomain>(m_hub, name, m_pid);
    }
    void Wait(std::span<Domain* const> /*domains*/, Deadline deadline, Take /*take*/) override {
        Lock lock(m_hub.mutex);
        const auto news = [&] { return m_hub.generation != m_seen; };
        if (deadline) {
            m_hub.stirred.wait_until(lock, *deadline, news);
        } else {
            m_hub.stirred.wait(lock, news);
        }
        m_seen = m_hub.generation;
    }
    void SayHeldUp(std::uint64_t token) override {
        const Lock lock(m_hub.mutex);
        m_hub.heldUp[m_pid] = token;
    }
    Peer Self() const override { return {"", m_pid, "host", "user"}; }

  private:
    MemoryHub& m_hub;
    int m_pid = 0;
    std::uint64_t m_seen = 0;
};

}  // namespace

std::unique_ptr<Transport> MakeMemoryTransport(MemoryHub& hub) {
    return std::make_unique<MemoryTransport>(hub);
}
