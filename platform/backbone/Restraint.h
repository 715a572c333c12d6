#ifndef ZYL_BACKBONE_RESTRAINT_H
#define ZYL_BACKBONE_RESTRAINT_H

#include <chrono>
#include <cstddef>
#include <span>

#include "Transport.h"

namespace zyl::backbone {

/// What a process takes in while its sends wait costs no more memory than this, a few messages beside: unless
/// it is one of several that wait for one another in a circle.
constexpr std::size_t kTakenInBudget = std::size_t{64} * 1024 * 1024;

/// How a send waits while the budget for what is taken in is spent; an object for each send, on its thread.
///
/// If its target is slow, or stands still, it waits and takes nothing in. But if the target is held up by us
/// in its turn, by way of others perhaps, nobody would ever get on. So whoever waits like this tells how many
/// processes in a row do: itself, and those that its target has told of. A row ends at somebody who is not
/// held up; in a circle the number grows with every look.
class Restraint {
  public:
    /// `link` leads to the target; null while that is not there. Both outlive this object.
    Restraint(Transport& transport, const Link* link) : m_transport(transport), m_link(link) {}
    ~Restraint() { Say(0); }
    Restraint(const Restraint&) = delete;
    Restraint& operator=(const Restraint&) = delete;

    /// Some of the message has gone: patience begins anew.
    void Advanced();

    /// Waits for room for a moment, at most until the deadline. Gives how many bytes may be taken in now,
    /// above what was.
    std::size_t Hold(std::span<Domain* const> domains, Deadline deadline);

  private:
    std::size_t HoldUnseen(std::span<Domain* const> domains, Deadline deadline);
    void Say(int processes);

    Transport& m_transport;
    const Link* m_link;
    std::chrono::milliseconds m_pause{};
    Deadline m_until;
    int m_said = 0;
};

}  // namespace zyl::backbone

#endif
