#include "switchboard/Target.h"

#include <fmt/format.h>

#include <utility>

#include "Diagnostics.h"

namespace zyl::backbone {

namespace {

/// Messages that are dropped for one target are one line, and then at most one more in such an interval.
constexpr auto kDropLineInterval = std::chrono::seconds(1);

}  // namespace

Target::Target(const std::string& name, const std::string& domain)
    : m_name(name), m_forWhom(fmt::format("for application {} in domain {}", Quoted(name), Quoted(domain))) {}

void Target::Open(std::unique_ptr<Link> link) {
    m_link = std::move(link);
    if (std::exchange(m_lost, false)) {
        m_reported = false;
        SayHowManyWereDropped();
    }
}

void Target::LoseLink() {
    m_reported = m_link->Announced();
    m_link.reset();
    m_lost = true;
}

void Target::ForgetDeadLink() {
    if (m_link != nullptr && !m_link->Alive()) {
        m_link.reset();
    }
}

void Target::NoteLoss(bool announced) {
    if (m_link == nullptr) {
        m_reported = announced || m_reported;
        m_lost = true;
    }
}

bool Target::Drop(const char* type, const char* reason, Clock::time_point now) {
    ++m_dropped;
    if (m_dropped == 1 || now - m_said >= kDropLineInterval) {
        Report(m_dropped == 1
                   ? fmt::format("a message of type {} {} is dropped: {}", Quoted(type), m_forWhom, reason)
                   : fmt::format("{} messages {} are dropped by now: {}", m_dropped, m_forWhom, reason));
        m_said = now;
        m_droppedAndSaid = m_dropped;
    }
    m_lost = true;
    return !std::exchange(m_reported, true);
}

void Target::SayHowManyWereDropped() {
    if (m_dropped != m_droppedAndSaid) {
        Report(fmt::format("in all {} messages {} were dropped", m_dropped, m_forWhom));
    }
    m_dropped = 0;
    m_droppedAndSaid = 0;
}

}  // namespace zyl::backbone
