#include "LocalTransport.h"

#include <algorithm>
#include <string>

#include "../Process.h"
#include "LocalDomain.h"

namespace zyl::backbone {

namespace {

using local::LocalDomain;
using std::chrono::milliseconds;

/// A domain's poller has something: that is all a wait over several domains needs to know.
class DomainStirred final : public local::Watched {
  public:
    void Ready(const local::Readiness& /*readiness*/) override {}
};

class LocalTransport final : public Transport {
  public:
    explicit LocalTransport(const Settings& settings) : m_settings(settings) {
        m_greeting.pid = ProcessId();
        m_greeting.host = HostName();
        m_greeting.user = UserName();
    }

    std::unique_ptr<Domain> Join(const std::string& name) override {
        auto domain = std::make_unique<LocalDomain>(m_settings.directory, name, m_greeting);
        m_all.Watch(domain->Poll().Descriptor(), m_stirred);
        return domain;
    }

    void Wait(std::span<Domain* const> domains, Deadline deadline) override {
        const std::optional<milliseconds> limit = Limit(domains, deadline);
        if (domains.size() == 1) {
            static_cast<LocalDomain*>(domains.front())->Poll().Wait(limit);
            return;
        }
        m_all.Wait(limit);
        for (Domain* domain : domains) {
            static_cast<LocalDomain*>(domain)->Poll().Wait(milliseconds(0));
        }
    }

    Peer Self() const override { return {"", m_greeting.pid, m_greeting.host, m_greeting.user}; }

  private:
    /// How long the wait may be: rounded up, so that a deadline has passed when it is over.
    static std::optional<milliseconds> Limit(std::span<Domain* const> domains, Deadline deadline) {
        std::optional<milliseconds> limit;
        if (deadline) {
            limit = std::max(milliseconds(0), std::chrono::ceil<milliseconds>(*deadline - Clock::now()));
        }
        for (const Domain* domain : domains) {
            const auto* local = static_cast<const LocalDomain*>(domain);
            if (local->HasNews()) {
                return milliseconds(0);
            }
            if (const auto longest = local->LongestWait()) {
                limit = std::min(limit.value_or(*longest), *longest);
            }
        }
        return limit;
    }

    Settings m_settings;
    local::Greeting m_greeting;
    local::Poller m_all;
    DomainStirred m_stirred;
};

}  // namespace

std::unique_ptr<Transport> MakeLocalTransport(const Settings& settings) {
    return std::make_unique<LocalTransport>(settings);
}

}  // namespace zyl::backbone
