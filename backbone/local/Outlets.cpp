#include "Outlets.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Frame.h"

namespace zyl::backbone::local {

namespace {

/// The switchboard's handle on a link, which stays here for as long as its peer lives.
class OpenLink final : public Link {
  public:
    OpenLink(Outlets& outlets, std::shared_ptr<Outgoing> outgoing)
        : m_outlets(outlets), m_outgoing(std::move(outgoing)) {}
    const Peer& To() const override { return m_outgoing->To(); }
    bool Announced() const override { return m_outgoing->Announced(); }
    bool Alive() override { return m_outgoing->Alive(); }
    void* Reserve(const char* type, int size) override {
        void* room = m_outgoing->Reserve(type, size);
        if (room == nullptr) {
            m_outlets.Sent(m_outgoing);
        }
        return room;
    }
    Progress Commit() override {
        m_outlets.Sent(m_outgoing);
        return m_outgoing->Commit();
    }
    std::uint64_t HeldUp() const override { return m_outgoing->HeldUp(); }

  private:
    Outlets& m_outlets;
    std::shared_ptr<Outgoing> m_outgoing;
};

}  // namespace

Outlets::Outlets(OutletsOwner& owner, system::System& system, const LocalSettings& settings, KeptBlocks& kept,
                 system::Names& names)
    : m_owner(owner), m_system(system), m_settings(settings), m_kept(kept), m_names(names) {}

std::unique_ptr<Link> Outlets::Open(const std::string& target) {
    std::shared_ptr<Outgoing> outgoing = LivingLinkTo(target);
    return outgoing != nullptr ? std::make_unique<OpenLink>(*this, std::move(outgoing)) : nullptr;
}

std::shared_ptr<Outgoing> Outlets::LivingLinkTo(const std::string& target) {
    const auto known = m_byName.find(target);
    if (known != m_byName.end() && known->second->Alive()) {
        return known->second;
    }
    const std::optional<system::Entry> entry = m_names.Find(target);
    return entry ? Connect(*entry) : nullptr;
}

std::shared_ptr<Outgoing> Outlets::Connect(const system::Entry& entry) {
    const system::Self& me = m_system.Me();
    if (entry.identity == me.identity || m_owner.IsGone(entry.identity)) {
        return nullptr;
    }
    system::Names::Connection connection = m_names.Connect(entry);
    // Who was forked from a dead holder may still have what can be connected to.
    const system::Names::Holding holding = connection.reached == system::Names::Reached::kNobody
                                               ? system::Names::Holding::kNo
                                               : m_names.IsHeld(entry);
    if (holding == system::Names::Holding::kNo) {
        return nullptr;
    }
    if (connection.reached == system::Names::Reached::kNotNow ||
        holding == system::Names::Holding::kUnknown) {
        if (entry.watches || m_wantsAll) {
            m_toReach[{entry.identity, entry.name}] = entry;
            m_owner.Know(entry);
            m_owner.TryAgainSoon();
        }
        return nullptr;
    }
    auto outgoing =
        std::make_shared<Outgoing>(m_owner, m_system, m_settings, m_kept, std::move(connection.channel),
                                   entry, Peer{entry.name, entry.pid, entry.host, me.user});
    outgoing->SendControl(
        GreetingFrame({kProtocolVersion, me.identity, me.pid, me.host, me.user, entry.name}) +
        m_owner.Announcements());
    const auto [first, last] = m_links.equal_range(entry.identity);
    for (auto link = first; link != last;) {
        link = link->second.use_count() == 1 ? m_links.erase(link) : std::next(link);
    }
    m_links.emplace_hint(last, entry.identity, outgoing);
    m_byName[entry.name] = outgoing;
    m_owner.Know(entry);
    return outgoing;
}

void Outlets::SendToAll(const std::string& frame) {
    for (const auto& [holder, outgoing] : m_links) {
        outgoing->SendControl(frame);
    }
}

/// Null: there is none.
Outgoing* Outlets::LastLinkTo(const system::Identity& life) const {
    const auto behind = m_links.upper_bound(life);
    return behind != m_links.begin() && std::prev(behind)->first == life ? std::prev(behind)->second.get()
                                                                         : nullptr;
}

void Outlets::Reach(const system::Entry& entry) {
    Outgoing* const known = LastLinkTo(entry.identity);
    if (known == nullptr || !known->Alive() || known->IsSlow()) {
        Connect(entry);
    } else if (!m_owner.IsGone(entry.identity)) {
        m_owner.Know(entry);
    }
}

void Outlets::TryAgain() {
    for (const auto& [holder, outgoing] : m_links) {
        outgoing->TryAgain();
    }
    for (const auto& [key, entry] : std::exchange(m_toReach, {})) {
        Reach(entry);
        if (!HasOpenLink(entry.identity)) {
            m_owner.NotReached(entry.identity);
        }
    }
}

bool Outlets::HasOpenLink(const system::Identity& life) const {
    Outgoing* const last = LastLinkTo(life);
    return last != nullptr && last->Alive();
}

void Outlets::SetLost(const system::Identity& life) {
    const auto [first, last] = m_links.equal_range(life);
    std::for_each(first, last, [](const auto& entry) { entry.second->SetLost(); });
}

void Outlets::Forget(const system::Identity& life) {
    const auto [first, last] = m_links.equal_range(life);
    std::for_each(first, last, [&](const auto& entry) {
        const auto named = m_byName.find(entry.second->To().application);
        if (named != m_byName.end() && named->second == entry.second) {
            m_byName.erase(named);
        }
    });
    m_links.erase(first, last);
    if (m_lastSent != nullptr && m_lastSent->Holder() == life) {
        m_lastSent.reset();
    }
}

}  // namespace zyl::backbone::local
