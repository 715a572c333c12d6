#include "Presence.h"

#include <algorithm>
#include <utility>

namespace zyl::backbone::local {

namespace {

/// Many more than there are leftovers of the dead in a domain at once.
constexpr std::size_t kMostRemembered = 16384;

}  // namespace

void Presence::Meet(const system::Identity& life, int pid, const std::string& host, const std::string& user) {
    m_lives.try_emplace(life, Life{pid, host, user, {}});
}

bool Presence::AddName(const system::Identity& life, const std::string& name, std::uint64_t order,
                       bool announced) {
    RemoveHolder(name, life);
    m_lives.at(life).names.insert_or_assign(name, Holding{name, order, announced});
    Holders& holders = m_holders[name];
    holders.emplace(order, life);
    m_contested += holders.size() == 2 ? 1 : 0;
    return holders.size() > 1;
}

std::size_t Presence::CountOfNames(const system::Identity& life) const {
    const auto found = m_lives.find(life);
    return found != m_lives.end() ? found->second.names.size() : 0;
}

std::vector<Presence::Holding> Presence::NamesOf(const system::Identity& life) const {
    std::vector<Holding> names;
    if (const auto found = m_lives.find(life); found != m_lives.end()) {
        for (const auto& [name, holding] : found->second.names) {
            names.push_back(holding);
        }
    }
    return names;
}

std::vector<system::Identity> Presence::LivingRivals(const std::string& name,
                                                     const system::Identity& life) const {
    std::vector<system::Identity> rivals;
    if (const auto holders = m_holders.find(name); holders != m_holders.end()) {
        for (const auto& [order, holder] : holders->second) {
            if (holder != life && !IsOver(holder)) {
                rivals.push_back(holder);
            }
        }
    }
    return rivals;
}

std::vector<system::Identity> Presence::Successors(const system::Identity& life) const {
    std::vector<system::Identity> successors;
    for (const Holding& holding : NamesOf(life)) {
        for (const auto& [order, holder] : m_holders.at(holding.name)) {
            if (order > holding.order && holder != life) {
                successors.push_back(holder);
            }
        }
    }
    return successors;
}

/// The name is one of the life's. Two have the same place only if one of them lies.
Presence::Holders::const_iterator Presence::FirstSuccessorIn(const std::string& name,
                                                             const system::Identity& life) const {
    const Holders& holders = m_holders.at(name);
    const std::uint64_t order = m_lives.at(life).names.at(name).order;
    return std::find_if(holders.lower_bound({order, {}}), holders.end(),
                        [&](const auto& holder) { return holder.second != life; });
}

bool Presence::HasSuccessorsIn(const std::string& name, const system::Identity& life) const {
    return m_lives.at(life).names.contains(name) && FirstSuccessorIn(name, life) != m_holders.at(name).end();
}

void Presence::RemoveSuccessorsIn(const std::string& name, const system::Identity& life) {
    while (HasSuccessorsIn(name, life)) {
        const system::Identity successor = FirstSuccessorIn(name, life)->second;
        m_lives.at(successor).names.erase(name);
        RemoveHolder(name, successor);
    }
}

void Presence::RemoveHolder(const std::string& name, const system::Identity& life) {
    const auto holders = m_holders.find(name);
    if (holders == m_holders.end()) {
        return;
    }
    const bool wasContested = holders->second.size() > 1;
    std::erase_if(holders->second, [&](const auto& holder) { return holder.second == life; });
    m_contested -= wasContested && holders->second.size() < 2 ? 1 : 0;
    if (holders->second.empty()) {
        m_holders.erase(holders);
    }
}

bool Presence::OwesEndOf(const std::string& name) const {
    const auto holders = m_holders.find(name);
    return holders != m_holders.end() &&
           std::any_of(holders->second.begin(), holders->second.end(),
                       [&](const auto& holder) { return IsOver(holder.second); });
}

bool Presence::SetOver(const system::Identity& life) {
    return m_lives.contains(life) && m_over.insert(life).second;
}

bool Presence::IsOver(const system::Identity& life) const {
    return m_over.contains(life);
}

/// Those that have held one of its names before it, the earliest first.
std::vector<system::Identity> Presence::Predecessors(const system::Identity& life) const {
    std::vector<system::Identity> predecessors;
    const auto known = m_lives.find(life);
    if (known == m_lives.end()) {
        return predecessors;
    }
    for (const auto& [name, holding] : known->second.names) {
        for (const auto& [order, holder] : m_holders.at(name)) {
            if (order >= holding.order) {
                break;
            }
            predecessors.push_back(holder);
        }
    }
    return predecessors;
}

/// Whether `life` comes before `other`, by way of others perhaps.
bool Presence::ComesBefore(const system::Identity& life, const system::Identity& other) const {
    std::set<system::Identity> seen{other};
    std::vector<system::Identity> toVisit{other};
    while (!toVisit.empty()) {
        const system::Identity next = toVisit.back();
        toVisit.pop_back();
        for (const system::Identity& predecessor : Predecessors(next)) {
            if (predecessor == life) {
                return true;
            }
            if (seen.insert(predecessor).second) {
                toVisit.push_back(predecessor);
            }
        }
    }
    return false;
}

/// The order of lives has no circle, unless somebody has lied. Who is in one waits for nobody in it.
bool Presence::IsBehindAnother(const system::Identity& life) const {
    return std::ranges::any_of(Predecessors(life), [&](const system::Identity& predecessor) {
        return !ComesBefore(life, predecessor);
    });
}

std::vector<PeerLost> Presence::Report(const system::Identity& life) {
    const Life ended = std::move(m_lives.extract(life).mapped());
    m_over.erase(life);
    Remember(life, ended.names);
    std::vector<PeerLost> reports;
    for (const auto& [name, holding] : ended.names) {
        RemoveHolder(name, life);
        auto peer = std::make_unique<Peer>(Peer{name, ended.pid, ended.host, ended.user});
        reports.push_back(PeerLost{std::move(peer), holding.announced});
    }
    return reports;
}

void Presence::ForgetLiar(const system::Identity& life) {
    Report(life);
    m_reported.at(life).liar = true;
}

bool Presence::RememberName(const system::Identity& life, const std::string& name) {
    const auto reported = m_reported.find(life);
    return reported != m_reported.end() && reported->second.names.insert(name).second &&
           !reported->second.liar;
}

void Presence::Remember(const system::Identity& life, const std::map<std::string, Holding>& names) {
    Reported& reported = m_reported[life];
    for (const auto& [name, holding] : names) {
        reported.names.insert(name);
    }
    m_reportedInOrder.push_back(life);
    if (m_reportedInOrder.size() > kMostRemembered) {
        m_reported.erase(m_reportedInOrder.front());
        m_reportedInOrder.pop_front();
    }
}

}  // namespace zyl::backbone::local
