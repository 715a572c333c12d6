#ifndef ZYL_BACKBONE_RESTRAINT_H
#define ZYL_BACKBONE_RESTRAINT_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "transport/Transport.h"

namespace zyl::backbone {

/// How a send waits while the budget for what is taken in is spent; an object for each send, on its thread.
///
/// If its target is slow, or stands still, it waits and takes nothing in. But if the target is held up by us
/// in its turn, by way of others perhaps, nobody would ever get on. So whoever waits like this has a token,
/// and tells its peers the greater one of this and of what its target tells: thus the greatest token goes
/// round a circle, and who sees its own come back is in one. A new token is greater than all that its process
/// has seen, so no token of a wait that is over is the greatest for long.
class Restraint {
  public:
    /// `domains` are all of this process; `link` leads to the target, and is null while that is not there.
    /// All outlive this object. When a circle was found, `step` more bytes may be taken in. `seen` is the
    /// greatest token that this process has seen.
    Restraint(Transport& transport, std::span<Domain* const> domains, const Link* link, std::size_t step,
              std::uint64_t& seen)
        : m_transport(transport), m_domains(domains), m_link(link), m_step(step), m_seen(seen) {}
    ~Restraint() { Say(0); }
    Restraint(const Restraint&) = delete;
    Restraint& operator=(const Restraint&) = delete;

    /// Waits for room for a moment, at most until the deadline. Gives how many bytes may be taken in now,
    /// above what was.
    std::size_t Hold(Deadline deadline);

  private:
    void Say(std::uint64_t token);

    Transport& m_transport;
    std::span<Domain* const> m_domains;
    const Link* m_link;
    std::size_t m_step;
    std::uint64_t& m_seen;
    std::uint64_t m_token = 0;
    std::uint64_t m_said = 0;
};

}  // namespace zyl::backbone

#endif
