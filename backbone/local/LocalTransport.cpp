#include "LocalTransport.h"

#include <algorithm>
#include <string>
#include <vector>

#include "LocalDomain.h"
#include "system/Process.h"

namespace zyl::backbone {

namespace {

using local::LocalDomain;
using std::chrono::milliseconds;

/// Longer than an answer from another processor takes, shorter than a wake-up by the system pays for.
constexpr std::chrono::microseconds kSpin{50};

class LocalTransport final : public Transport {
  public:
    explicit LocalTransport(const Settings& settings) : m_settings(settings) {
        m_greeting.pid = ProcessId();
        m_greeting.host = HostName();
        m_greeting.user = UserName();
    }

    std::unique_ptr<Domain> Join(const std::string& name) override {
        return std::make_unique<LocalDomain>(m_settings, name, m_greeting, m_bell);
    }

    void Wait(std::span<Domain* const> domains, Deadline deadline, Take take) override {
        for (Domain* domain : domains) {
            static_cast<LocalDomain*>(domain)->GiveBackRoom();
        }
        const std::optional<milliseconds> limit = Limit(domains, deadline, take);
        if (limit == milliseconds(0)) {
            Poll(domains, limit);
            return;
        }
        if (SpinForNews(domains, take)) {
            return;
        }
        m_bell.FallAsleep();
        if (!HasLaneNews(domains, take)) {
            Poll(domains, limit);
        }
        m_bell.WakeUp();
    }

    void SayHeldUp(std::uint64_t token) override { m_bell.SayHeldUp(token); }

    Peer Self() const override { return {"", m_greeting.pid, m_greeting.host, m_greeting.user}; }

  private:
    static bool HasLaneNews(std::span<Domain* const> domains, Take take) {
        return std::any_of(domains.begin(), domains.end(), [&](const Domain* domain) {
            return static_cast<const LocalDomain*>(domain)->HasLaneNews(take);
        });
    }

    /// Looks for news for a moment, if the peer that is likely to have some runs at the same time. An answer
    /// then comes sooner than the system could wake us.
    bool SpinForNews(std::span<Domain* const> domains, Take take) {
        const int here = m_bell.PublishProcessor();
        const bool worthIt = std::any_of(domains.begin(), domains.end(), [&](const Domain* domain) {
            const local::PeerDoorbell* peer = static_cast<const LocalDomain*>(domain)->LastMet();
            return peer != nullptr && peer->Processor() != here;
        });
        if (!worthIt) {
            return false;
        }
        const Clock::time_point end = Clock::now() + kSpin;
        do {
            if (HasLaneNews(domains, take)) {
                return true;
            }
            local::SpinPause();
        } while (Clock::now() < end);
        return false;
    }

    static void Poll(std::span<Domain* const> domains, std::optional<milliseconds> limit) {
        if (domains.size() == 1) {
            static_cast<LocalDomain*>(domains.front())->Poll().Wait(limit);
            return;
        }
        std::vector<local::Poller*> pollers;
        for (Domain* domain : domains) {
            pollers.push_back(&static_cast<LocalDomain*>(domain)->Poll());
        }
        local::Poller::WaitForAny(pollers, limit);
    }

    /// How long the wait may be: rounded up, so that a deadline has passed when it is over.
    static std::optional<milliseconds> Limit(std::span<Domain* const> domains, Deadline deadline, Take take) {
        std::optional<milliseconds> limit;
        if (deadline) {
            limit = std::max(milliseconds(0), std::chrono::ceil<milliseconds>(*deadline - Clock::now()));
        }
        for (const Domain* domain : domains) {
            const auto* local = static_cast<const LocalDomain*>(domain);
            if (local->HasNews(take)) {
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
    local::Doorbell m_bell;
};

}  // namespace

std::unique_ptr<Transport> MakeLocalTransport(const Settings& settings) {
    return std::make_unique<LocalTransport>(settings);
}

}  // namespace zyl::backbone
