#ifndef ZYL_BACKBONE_RESTRAINT_H
#define ZYL_BACKBONE_RESTRAINT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

#include "transport/Transport.h"

namespace zyl::backbone {

/// What a process takes in while its sends wait costs no more memory than this, a few messages beside: unless
/// it is one of several that wait for one another in a circle.
constexpr std::size_t kTakenInBudget = std::size_t{64} * 1024 * 1024;

/// How a send waits while the budget for what is taken in is spent; an object for each send, on its thread.
///
/// If its target is slow, or stands still, it waits and takes nothing in. But if the target is held up by us
/// in its turn, by way of others perhaps, nobody would ever get on. So whoever waits like this has a token,
/// and tells its peers the greater one of this and of what its target tells: thus the greatest token goes
/// round a circle, and who sees its own come back is in one. Tokens grow with time, and so no token of a wait
/// that is over is ever the greatest.
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
    void Say(std::uint64_t token);

    Transport& m_transport;
    const Link* m_link;
    std::chrono::milliseconds m_pause{};
    Deadline m_until;
    std::uint64_t m_token = 0;
    std::uint64_t m_said = 0;
};

}  // namespace zyl::backbone

#endif
