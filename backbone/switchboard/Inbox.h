#ifndef ZYL_BACKBONE_INBOX_H
#define ZYL_BACKBONE_INBOX_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "transport/Transport.h"

namespace zyl::backbone {

/// What a process has taken in of one domain and not dispatched yet: while a send waited, or by a send to itself.
///
/// What came from peers keeps its order, and so does what came from this process; the two take turns. A message for an
/// application without a handler waits for the handler, and then takes its old place.
class Inbox {
  public:
    /// Another application was declared; they are numbered from 0.
    void AddApplication() { m_applications.emplace_back(); }
    void HandlerCame(int application);

    void TakeIn(Event event) { Put(m_fromPeers, &Application::fromPeers, std::move(event)); }
    void TakeInFromSelf(Message message) { Put(m_fromSelf, &Application::fromSelf, std::move(message)); }

    /// What to dispatch next, if there is anything here or in the domain, which is younger.
    std::optional<Event> Next(Domain& domain);
    /// Whether the end of a life of the peer is here. A report without a process number is of no life: it tells of a
    /// message that could not be delivered.
    bool HasLossOf(const std::string& peer) const;
    /// What all of it costs in memory, about.
    std::size_t Bytes() const { return m_bytes; }

  private:
    struct Numbered {
        std::uint64_t number;
        Event event;
    };
    using Queue = std::deque<Numbered>;
    /// What waits for the application's handler.
    struct Application {
        bool hasHandler = false;
        Queue fromPeers;
        Queue fromSelf;
    };

    void Put(Queue& queue, Queue Application::*waiting, Event event);
    Event Pop(Queue& queue);
    static void Merge(Queue& waiting, Queue& queue);

    std::deque<Application> m_applications;
    Queue m_fromPeers;
    Queue m_fromSelf;
    bool m_selfIsNext = false;
    std::uint64_t m_lastNumber = 0;
    std::size_t m_bytes = 0;
};

}  // namespace zyl::backbone

#endif
