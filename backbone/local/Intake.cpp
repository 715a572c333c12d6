#include "Intake.h"

#include <algorithm>
#include <new>
#include <utility>

namespace zyl::backbone::local {

void Intake::Add(std::unique_ptr<Incoming> link) {
    m_links.push_back(std::move(link));
    MakeReady(*m_links.back());
}

void Intake::MayBeRead(Incoming& link) {
    if (link.turn != Incoming::Turn::kReady && link.turn != Incoming::Turn::kAwaitsPredecessor) {
        MakeReady(link);
    }
}

void Intake::MakeReady(Incoming& link) {
    if (link.turn == Incoming::Turn::kPolled) {
        std::erase(m_polled, &link);
    } else if (link.turn == Incoming::Turn::kAwaitsHandler) {
        --m_awaitingHandler;
    }
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
    if (m_someUnknown &&
        std::none_of(m_links.begin(), m_links.end(), [](const auto& link) { return link->MayBeUnknown(); })) {
        m_someUnknown = false;
        MakeAllReady(Incoming::Turn::kAwaitsPredecessor);
    }
}

/// The link stands in no list meanwhile, but counts as ready.
std::optional<Message> Intake::LookAt(Incoming& link, Take take) {
    std::string complaint;
    try {
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
                m_owner.Greeted(link, *greeting);
            } else {
                m_owner.Announced(link, std::get<Announcement>(found));
            }
        }
    } catch (const BadFrame& bad) {
        complaint = bad.what();
    } catch (const std::bad_alloc&) {
        complaint = "there is no memory for its next message";
    }
    m_owner.Broken(link, complaint);
    Remove(link);
    return std::nullopt;
}

Message Intake::HandOut(Incoming& link, Incoming::Text& text) {
    m_ready.push_back(&link);
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
    m_someUnknown = m_someUnknown || link.MayBeUnknown();
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
    MakeAllReady(Incoming::Turn::kAwaitsPredecessor);
}

void Intake::MakeAllReady(Incoming::Turn from) {
    for (const auto& link : m_links) {
        if (link->turn == from) {
            MakeReady(*link);
        }
    }
}

void Intake::LookAtAll(const system::Identity& life) {
    for (const auto& link : m_links) {
        if (!link->Greeted() || link->Opener() == life) {
            link->LookAgain();
            MayBeRead(*link);
        }
    }
}

void Intake::LookAtUngreeted() {
    for (const auto& link : m_links) {
        if (!link->Greeted()) {
            m_someUnknown = true;
            link->LookAgain();
            MayBeRead(*link);
        }
    }
}

bool Intake::EarlierIsUnknown(const Incoming& link) const {
    if (!m_someUnknown) {
        return false;
    }
    for (const auto& one : m_links) {
        if (one.get() == &link) {
            return false;
        }
        if (one->MayBeUnknown()) {
            return true;
        }
    }
    return false;
}

void Intake::TryAgain() {
    MakeAllReady(Incoming::Turn::kAwaitsPredecessor);
    for (const auto& link : m_links) {
        link->TryAgain();
        if (link->Unread()) {
            MayBeRead(*link);
        }
    }
}

bool Intake::MayHaveUnread(const system::Identity& life) const {
    return std::any_of(m_links.begin(), m_links.end(), [&](const auto& link) {
        return link->Greeted() ? link->Opener() == life && link->turn != Incoming::Turn::kAwaitsHandler
                               : link->Unread();
    });
}

void Intake::SetReported(const system::Identity& life) {
    for (const auto& link : m_links) {
        link->lifeReported = link->lifeReported || (link->Greeted() && link->Opener() == life);
    }
}

bool Intake::HasAccepted(const system::Identity& life) const {
    return std::any_of(m_links.begin(), m_links.end(),
                       [&](const auto& link) { return link->Greeted() && link->Opener() == life; });
}

bool Intake::HasLinkOf(const system::Identity& life) const {
    return std::any_of(m_links.begin(), m_links.end(), [&](const auto& link) {
        return link->Greeted() && link->Opener() == life && !link->HasEnded();
    });
}

bool Intake::HasEndedLinkOf(const system::Identity& life) const {
    return std::any_of(m_links.begin(), m_links.end(), [&](const auto& link) {
        return link->Greeted() && link->Opener() == life && link->ChannelHasEnded();
    });
}

void Intake::SayHeldUp(std::uint64_t token) {
    for (const auto& link : m_links) {
        link->SayHeldUp(token);
    }
}

void Intake::Remove(Incoming& link) {
    m_awaitingHandler -= link.turn == Incoming::Turn::kAwaitsHandler ? 1 : 0;
    std::erase(m_ready, &link);
    std::erase(m_polled, &link);
    std::erase(m_owing, &link);
    if (m_lastInLane == &link) {
        m_lastInLane = nullptr;
    }
    std::erase_if(m_links, [&](const auto& one) { return one.get() == &link; });
}

}  // namespace zyl::backbone::local
