#include "Lives.h"

#include <set>
#include <utility>

namespace zyl::backbone::local {

namespace {

/// The kernel closes what a dying process has open one by one; the last of it is long closed after this time,
/// and its number is not given to another process so soon.
constexpr std::chrono::seconds kDying{1};

}  // namespace

void Lives::Meet(int pid, const std::string& host, const std::string& user) {
    m_lives.try_emplace(pid, Life{host, user, {}});
}

void Lives::Greet(int pid, const std::string& host, const std::string& user) {
    Life& life = m_lives[pid];
    life.host = host;
    life.user = user;
}

void Lives::Name(int pid, const std::string& application, bool announced) {
    if (m_lives[pid].applications.insert_or_assign(application, announced).second) {
        m_holders[application].push_back(pid);
    }
}

std::size_t Lives::CountOfNames(int pid) const {
    const auto life = m_lives.find(pid);
    return life != m_lives.end() ? life->second.applications.size() : 0;
}

bool Lives::End(int pid) {
    const auto life = m_lives.find(pid);
    if (life == m_lives.end() || life->second.ending) {
        return false;
    }
    life->second.ending = true;
    ++m_ending;
    return true;
}

std::vector<int> Lives::Ending() const {
    std::vector<int> ending;
    for (const auto& [pid, life] : m_lives) {
        if (life.ending) {
            ending.push_back(pid);
        }
    }
    return ending;
}

std::vector<PeerLost> Lives::Bury(int pid) {
    const Life life = std::move(m_lives.extract(pid).mapped());
    m_ending -= life.ending ? 1 : 0;
    m_someWait = false;
    for (auto& [other, successor] : m_lives) {
        if (std::erase(successor.predecessors, pid) > 0) {
            successor.predecessors.insert(successor.predecessors.end(), life.predecessors.begin(),
                                          life.predecessors.end());
        }
        m_someWait = m_someWait || !successor.predecessors.empty();
    }
    std::erase_if(m_buried, [](const auto& entry) { return Clock::now() - entry.second >= kDying; });
    m_buried[pid] = Clock::now();
    std::vector<PeerLost> reports;
    for (const auto& [application, announced] : life.applications) {
        const auto holders = m_holders.find(application);
        if (std::erase(holders->second, pid) > 0 && holders->second.empty()) {
            m_holders.erase(holders);
        }
        auto peer = std::make_unique<Peer>(Peer{application, pid, life.host, life.user});
        reports.push_back(PeerLost{std::move(peer), announced});
    }
    return reports;
}

bool Lives::EndedJustNow(int pid) const {
    const auto buried = m_buried.find(pid);
    return buried != m_buried.end() && Clock::now() - buried->second < kDying;
}

std::vector<int> Lives::Holders(const std::string& application) const {
    const auto holders = m_holders.find(application);
    return holders != m_holders.end() ? holders->second : std::vector<int>();
}

/// Nobody is ever put before himself, so the first of those who wait always gets on.
void Lives::PutBefore(int earlier, int later) {
    if (!Precedes(later, earlier)) {
        m_lives.at(later).predecessors.push_back(earlier);
        m_someWait = true;
    }
}

bool Lives::Precedes(int earlier, int later) const {
    std::set<int> seen;
    std::vector<int> toVisit = {later};
    while (!toVisit.empty()) {
        const int one = toVisit.back();
        toVisit.pop_back();
        for (const int before : m_lives.at(one).predecessors) {
            if (before == earlier) {
                return true;
            }
            if (seen.insert(before).second) {
                toVisit.push_back(before);
            }
        }
    }
    return false;
}

bool Lives::HasToWait(int pid) const {
    if (!m_someWait) {
        return false;
    }
    const auto life = m_lives.find(pid);
    return life != m_lives.end() && !life->second.predecessors.empty();
}

}  // namespace zyl::backbone::local
