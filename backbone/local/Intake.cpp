#include "Intake.h"

#include <algorithm>
#include <new>
#include <utility>

namespace zyl::backbone::local {

void Intake::Add(std::unique_ptr<Incoming> link) {
    link->number = m_accepted++;
    m_unknown.emplace(link->number, link.get());
    m_someUnread = true;
    m_links.push_back(std::move(link));
    MakeReady(*m_links.back());
}

void Intake::MayBeRead(Incoming& link) {
    if (link.turn != Incoming::Turn::kReady && link.turn != Incoming::Turn::kAwaitsPredecessor) {
        MakeReady(link);
    }
}

/// The ready ones aside, which leave when they are looked at.
void Intake::LeaveTurn(Incoming& link) {
    if (link.turn == Incoming::Turn::kPolled) {
        std::erase(m_polled, &link);
    }
    m_awaitingHandler -= link.turn == Incoming::Turn::kAwaitsHandler ? 1 : 0;
    m_awaitingPredecessor -= link.turn == Incoming::Turn::kAwaitsPredecessor ? 1 : 0;
}

void Intake::MakeReady(Incoming& link) {
    LeaveTurn(link);
    link.Awake();
    link.turn = Incoming::Turn::kReady;
    m_ready.push_back(&link);
}

std::optional<Message> Intake::Next(Take take) {
    if (take == Take::kAll) {
        HandlerCame();
    }
    if (m_ready.empty() || ++m_sincePoll > m_pace.messagesBetweenPolls) {
        PollLanes();
        SeeWhetherAllAreKnown();
    }
    for (std::size_t looks = m_ready.size(); looks > 0 && !m_ready.empty(); --looks) {
        Incoming& link = *m_ready.front();
        m_ready.pop_front();
        if (std::optional<Message> message = LookAt(link, take)) {
            return message;
        }
    }
    SeeWhetherAllAreKnown();
    return std::nullopt;
}

void Intake::SeeWhetherAllAreKnown() {
    if (m_someUnread && std::none_of(m_unknown.begin(), m_unknown.end(),
                                     [](const auto& entry) { return entry.second->MayBeUnknown(); })) {
        m_someUnread = false;
        PredecessorReported();
    }
}

/// The link stands in no list meanwhile, but counts as ready.
std::optional<Message> Intake::LookAt(Incoming& link, Take take) {
    std::string complaint;
    try {
        return ReadOn(link, take);
    } catch (const BadFrame& bad) {
        complaint = bad.what();
    } catch (const std::bad_alloc&) {
        complaint = "there is no memory for its next message";
    }
    m_owner.Broken(link, complaint);
    Remove(link);
    return std::nullopt;
}

std::optional<Message> Intake::ReadOn(Incoming& link, Take take) {
    for (;;) {
        const bool wanted = m_owner.IsWanted(link, take) && !m_owner.HasToWait(link);
        const Incoming::Want want = !wanted              ? Incoming::Want::kNoMessage
                                    : take == Take::kAll ? Incoming::Want::kOwnCopy
                                                         : Incoming::Want::kMessage;
        Incoming::Found found = link.Next(want);
        if (const auto* nothing = std::get_if<Incoming::Nothing>(&found)) {
            Settle(link, *nothing, take);
            return std::nullopt;
        }
        if (auto* text = std::get_if<Incoming::Text>(&found)) {
            return HandOut(link, *text);
        }
        if (const auto* greeting = std::get_if<Greeting>(&found)) {
            std::vector<Incoming*>& links = m_greeted[link.Opener()];
            links.insert(
                std::ranges::find_if(links, [&](const Incoming* one) { return one->number > link.number; }),
                &link);
            m_owner.Greeted(link, *greeting);
        } else {
            m_owner.Announced(link, std::get<Announcement>(found));
        }
    }
}

/// Called when it has been read as far as it can be now.
void Intake::SeeWhetherItIsKnown(Incoming& link) {
    if (!link.Greeted() || link.MayBeUnknown()) {
        m_unknown.emplace(link.number, &link);
        m_someUnread = m_someUnread || link.MayBeUnknown();
    } else {
        m_unknown.erase(link.number);
    }
}

Message Intake::HandOut(Incoming& link, Incoming::Text& text) {
    m_ready.push_back(&link);
    if (link.MayBeUnknown()) {
        SeeWhetherItIsKnown(link);
    }
    link.emptyLooks = 0;
    if (link.HasLane()) {
        m_lastInLane = &link;
    }
    return {link.application, text.type, text.body.data(), static_cast<int>(text.body.size()),
            std::move(text.storage)};
}

/// Where a link goes that has no message for us.
void Intake::Settle(Incoming& link, Incoming::Nothing nothing, Take take) {
    const bool empty = nothing == Incoming::Nothing::kEmpty;
    SeeWhetherItIsKnown(link);
    if (nothing == Incoming::Nothing::kEnded || (empty && !link.Unread() && m_owner.IsOver(link))) {
        m_owner.Ended(link);
        Remove(link);
        return;
    }
    if (link.GiveBack() && std::find(m_owing.begin(), m_owing.end(), &link) == m_owing.end()) {
        m_owing.push_back(&link);
    }
    if (empty && link.HasLane()) {
        link.turn = Incoming::Turn::kPolled;
        m_polled.push_back(&link);
    } else if (empty) {
        link.turn = Incoming::Turn::kWatched;
    } else if (m_owner.HasToWait(link)) {
        link.turn = Incoming::Turn::kAwaitsPredecessor;
        ++m_awaitingPredecessor;
    } else if (take == Take::kNothing) {
        m_ready.push_back(&link);
    } else {
        link.turn = Incoming::Turn::kAwaitsHandler;
        ++m_awaitingHandler;
    }
}

void Intake::PollLanes() {
    m_sincePoll = 0;
    GiveBack();
    const bool othersHaveMessages = !m_ready.empty();
    for (std::size_t index = 0; index < m_polled.size();) {
        Incoming& link = *m_polled[index];
        if (link.HasLaneNews()) {
            MakeReady(link);
        } else if (othersHaveMessages && ++link.emptyLooks >= m_pace.emptyLooks) {
            StopPolling(link);
        } else {
            ++index;
        }
    }
}

void Intake::StopPolling(Incoming& link) {
    link.emptyLooks = 0;
    link.Asleep();
    StoreLoadFence();
    if (link.HasLaneNews()) {
        MakeReady(link);
    } else {
        std::erase(m_polled, &link);
        link.turn = Incoming::Turn::kWatched;
    }
}

bool Intake::HasNews(Take take) {
    if (take == Take::kNothing) {
        return false;
    }
    return !m_ready.empty() || (take == Take::kAll && m_awaitingHandler > 0) || HasLaneNews(take);
}

bool Intake::HasLaneNews(Take take) {
    return take != Take::kNothing &&
           std::any_of(m_polled.begin(), m_polled.end(), [](Incoming* link) { return link->HasLaneNews(); });
}

bool Intake::FallAsleep() {
    for (Incoming* link : m_polled) {
        link->Asleep();
    }
    StoreLoadFence();
    GiveBack();  // a writer may have come to want what is still looked at
    for (Incoming* link : std::exchange(m_polled, {})) {
        link->turn = Incoming::Turn::kWatched;
        if (link->HasLaneNews()) {
            MakeReady(*link);
        }
    }
    return m_ready.empty();
}

void Intake::GiveBack() {
    std::erase_if(m_owing, [](Incoming* link) { return !link->GiveBack(); });
}

void Intake::HandlerCame() {
    if (m_awaitingHandler > 0) {
        MakeAllReady(Incoming::Turn::kAwaitsHandler);
    }
}

void Intake::PredecessorReported() {
    if (m_awaitingPredecessor > 0) {
        MakeAllReady(Incoming::Turn::kAwaitsPredecessor);
    }
}

void Intake::MakeAllReady(Incoming::Turn from) {
    for (const auto& link : m_links) {
        if (link->turn == from) {
            MakeReady(*link);
        }
    }
}

/// In the order in which they were accepted.
const std::vector<Incoming*>& Intake::LinksOf(const system::Identity& life) const {
    static const std::vector<Incoming*> s_none;
    const auto links = m_greeted.find(life);
    return links != m_greeted.end() ? links->second : s_none;
}

void Intake::LookAtAll(const system::Identity& life) {
    for (Incoming* link : LinksOf(life)) {
        link->LookAgain();
        MayBeRead(*link);
    }
    LookAtUngreeted();
}

void Intake::LookAtUngreeted() {
    for (const auto& [number, link] : m_unknown) {
        if (!link->Greeted()) {
            m_someUnread = true;
            link->LookAgain();
            MayBeRead(*link);
        }
    }
}

bool Intake::EarlierIsUnknown(const Incoming& link) const {
    return m_someUnread && std::any_of(m_unknown.begin(), m_unknown.lower_bound(link.number),
                                       [](const auto& entry) { return entry.second->MayBeUnknown(); });
}

void Intake::TryAgain() {
    PredecessorReported();
    for (const auto& link : m_links) {
        link->TryAgain();
        if (link->Unread()) {
            MayBeRead(*link);
        }
    }
}

bool Intake::MayHaveUnread(const system::Identity& life) const {
    return std::ranges::any_of(
               LinksOf(life),
               [](const Incoming* link) { return link->turn != Incoming::Turn::kAwaitsHandler; }) ||
           std::ranges::any_of(m_unknown, [](const auto& entry) {
               return !entry.second->Greeted() && entry.second->Unread();
           });
}

void Intake::SetReported(const system::Identity& life) {
    for (Incoming* link : LinksOf(life)) {
        link->lifeReported = true;
    }
}

bool Intake::HasAccepted(const system::Identity& life) const {
    return !LinksOf(life).empty();
}

bool Intake::HasLinkOf(const system::Identity& life) const {
    return std::ranges::any_of(LinksOf(life), [](const Incoming* link) { return !link->HasEnded(); });
}

bool Intake::HasEndedLinkOf(const system::Identity& life) const {
    return std::ranges::any_of(LinksOf(life), [](Incoming* link) { return link->ChannelHasEnded(); });
}

bool Intake::HasLinkOf(const system::Entry& entry, std::optional<int> application) const {
    return std::ranges::any_of(LinksOf(entry.identity), [&](const Incoming* link) {
        return !link->HasEnded() && !link->lifeReported && link->pid == entry.pid &&
               link->application == application.value_or(link->application);
    });
}

void Intake::SayHeldUp(std::uint64_t token) {
    for (const auto& link : m_links) {
        link->SayHeldUp(token);
    }
}

void Intake::Remove(Incoming& link) {
    LeaveTurn(link);
    m_unknown.erase(link.number);
    if (const auto links = m_greeted.find(link.Opener()); links != m_greeted.end()) {
        std::erase(links->second, &link);
        if (links->second.empty()) {
            m_greeted.erase(links);
        }
    }
    std::erase(m_ready, &link);
    std::erase(m_owing, &link);
    if (m_lastInLane == &link) {
        m_lastInLane = nullptr;
    }
    std::erase_if(m_links, [&](const auto& one) { return one.get() == &link; });
}

}  // namespace zyl::backbone::local
