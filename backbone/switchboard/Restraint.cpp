#include "switchboard/Restraint.h"

#include <algorithm>

namespace zyl::backbone {

namespace {

using std::chrono::milliseconds;

/// How often a process looks what its target tells.
constexpr milliseconds kLookInterval{5};

/// So much more may be taken in when a circle was found: finding it took a while, so this is not little.
constexpr std::size_t kCircleStep = std::size_t{16} * 1024 * 1024;

/// Where it cannot be seen what the target does, a message of each domain is taken in after so long without
/// progress, and then at intervals that double up to the longest.
constexpr milliseconds kFirstPause{20};
constexpr milliseconds kLongestPause{1000};

/// The time, which all processes of a machine share, with the process's number in its place of least value.
std::uint64_t NewToken(int pid) {
    constexpr std::uint64_t kPidBits = 0xffff;
    const auto now = static_cast<std::uint64_t>(Clock::now().time_since_epoch().count());
    return (now & ~kPidBits) | (static_cast<std::uint64_t>(pid) & kPidBits);
}

}  // namespace

void Restraint::Advanced() {
    m_pause = {};
    m_until.reset();
}

std::size_t Restraint::Hold(std::span<Domain* const> domains, Deadline deadline) {
    if (m_token == 0) {
        m_token = NewToken(m_transport.Self().pid);
    }
    const std::optional<std::uint64_t> theirs = m_link != nullptr ? m_link->HeldUp() : 0;
    Say(std::max(m_token, theirs.value_or(0)));
    if (!theirs) {
        return HoldUnseen(domains, deadline);
    }
    if (*theirs == m_token) {
        return kCircleStep;
    }
    const Clock::time_point nextLook = Clock::now() + kLookInterval;
    m_transport.Wait(domains, std::min(deadline.value_or(nextLook), nextLook), Take::kNothing);
    return 0;
}

std::size_t Restraint::HoldUnseen(std::span<Domain* const> domains, Deadline deadline) {
    if (!m_until) {
        m_pause = std::clamp(2 * m_pause, kFirstPause, kLongestPause);
        m_until = Clock::now() + m_pause;
    }
    m_transport.Wait(domains, std::min(deadline.value_or(*m_until), *m_until), Take::kNothing);
    if (Clock::now() < *m_until) {
        return 0;
    }
    m_until.reset();
    return 1;
}

void Restraint::Say(std::uint64_t token) {
    if (m_said != token) {
        m_said = token;
        m_transport.SayHeldUp(token);
    }
}

}  // namespace zyl::backbone
