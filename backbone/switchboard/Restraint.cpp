#include "switchboard/Restraint.h"

#include <algorithm>

namespace zyl::backbone {

namespace {

using std::chrono::milliseconds;

/// How often a process looks what its target tells.
constexpr milliseconds kLookInterval{5};

/// The place of a process's own number in its tokens, which keeps them apart.
constexpr std::uint64_t kTagBits = 0xffff;

/// The time, which all processes of a machine share, or more, with the tag in the place of least value.
std::uint64_t NewToken(Transport& transport, std::uint64_t seen) {
    const auto now = static_cast<std::uint64_t>(transport.Now().time_since_epoch().count());
    return (std::max(now, seen + kTagBits + 1) & ~kTagBits) | (transport.Tag() & kTagBits);
}

}  // namespace

std::size_t Restraint::Hold(Deadline deadline) {
    const std::uint64_t theirs = m_link != nullptr ? m_link->HeldUp() : 0;
    m_seen = std::max(m_seen, theirs);
    if (m_token == 0) {
        m_token = NewToken(m_transport, m_seen);
        m_seen = m_token;
    }
    Say(std::max(m_token, theirs));
    if (theirs == m_token) {
        return m_step;
    }
    const Clock::time_point nextLook = m_transport.Now() + kLookInterval;
    m_transport.Wait(m_domains, std::min(deadline.value_or(nextLook), nextLook), Take::kNothing);
    return 0;
}

void Restraint::Say(std::uint64_t token) {
    if (m_said != token) {
        m_said = token;
        m_transport.SayHeldUp(m_domains, token);
    }
}

}  // namespace zyl::backbone
