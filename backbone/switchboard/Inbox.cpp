#include "switchboard/Inbox.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace zyl::backbone {

namespace {

/// What a message costs besides its type name and its body, about.
constexpr std::size_t kMessageOverhead = 256;

/// What an event that waits costs in memory, about.
std::size_t Weight(const Event& event) {
    const auto* message = std::get_if<Message>(&event);
    return message != nullptr
               ? static_cast<std::size_t>(message->Size()) + std::strlen(message->Type()) + kMessageOverhead
               : 0;
}

}  // namespace

void Inbox::HandlerCame(int number) {
    Application& application = m_applications[static_cast<std::size_t>(number)];
    application.hasHandler = true;
    Merge(application.fromPeers, m_fromPeers);
    Merge(application.fromSelf, m_fromSelf);
}

void Inbox::Merge(Queue& waiting, Queue& queue) {
    Queue merged;
    std::merge(std::make_move_iterator(waiting.begin()), std::make_move_iterator(waiting.end()),
               std::make_move_iterator(queue.begin()), std::make_move_iterator(queue.end()),
               std::back_inserter(merged),
               [](const Numbered& one, const Numbered& other) { return one.number < other.number; });
    waiting.clear();
    queue = std::move(merged);
}

void Inbox::Put(Queue& queue, Queue Application::*waiting, Event event) {
    m_bytes += Weight(event);
    Queue* place = &queue;
    if (const auto* message = std::get_if<Message>(&event)) {
        Application& receiver = m_applications[static_cast<std::size_t>(message->Application())];
        place = receiver.hasHandler ? &queue : &(receiver.*waiting);
    }
    place->push_back({++m_lastNumber, std::move(event)});
}

Event Inbox::Pop(Queue& queue) {
    Event event = std::move(queue.front().event);
    queue.pop_front();
    m_bytes -= Weight(event);
    return event;
}

std::optional<Event> Inbox::Next(Domain& domain) {
    m_selfIsNext = !m_selfIsNext;
    if (m_selfIsNext && !m_fromSelf.empty()) {
        return Pop(m_fromSelf);
    }
    if (!m_fromPeers.empty()) {
        return Pop(m_fromPeers);
    }
    std::optional<Event> event = domain.Next(Take::kDelivered);
    if (!event && !m_fromSelf.empty()) {
        event = Pop(m_fromSelf);
    }
    return event;
}

bool Inbox::HasLossOf(const std::string& peer) const {
    return std::any_of(m_fromPeers.begin(), m_fromPeers.end(), [&](const Numbered& one) {
        const auto* lost = std::get_if<PeerLost>(&one.event);
        return lost != nullptr && lost->peer->pid != 0 && lost->peer->application == peer;
    });
}

}  // namespace zyl::backbone
