#include "LocalTransport.h"

#include <algorithm>
#include <vector>

#include "LocalDomain.h"

namespace zyl::backbone::local {

namespace {

/// Longer than an answer from another processor takes, shorter than a wake-up by the system pays for.
constexpr std::chrono::microseconds kSpin{50};

/// A look at the clock costs as much as several at a lane.
constexpr int kLooksBetweenTimes = 32;

class LocalTransport final : public Transport {
  public:
    LocalTransport(system::System& system, const LocalSettings& settings)
        : m_system(system), m_settings(settings), m_kept{settings.limits.keptBlocks} {}

    std::unique_ptr<Domain> Join(const std::string& name) override {
        return std::make_unique<LocalDomain>(m_system, m_settings, m_kept, m_joined, name);
    }

    /// Only news of `domains` ends the wait. What is due is done for every domain that was joined: a peer may wait
    /// for it.
    void Wait(std::span<Domain* const> domains, Deadline deadline, Take take) override {
        for (LocalDomain* joined : m_joined) {
            joined->BeforeWait();
        }
        if (HasNews(domains, take)) {
            m_system.Wait(m_system.Now());
        } else if (!SpinForNews(domains, take) && FallAsleep(domains, take)) {
            for (const LocalDomain* joined : m_joined) {
                if (const Deadline next = joined->NextTry()) {
                    deadline = std::min(deadline.value_or(*next), *next);
                }
            }
            m_system.Wait(deadline);
        }
        for (LocalDomain* joined : m_joined) {
            joined->AfterWait();
        }
    }

    Clock::time_point Now() override { return m_system.Now(); }
    Peer Self() const override {
        const system::Self& me = m_system.Me();
        return {"", me.pid, me.host, me.user};
    }
    std::uint64_t Tag() const override { return m_system.Me().identity.low; }
    void SayHeldUp(std::span<Domain* const> domains, std::uint64_t token) override {
        for (Domain* domain : domains) {
            static_cast<LocalDomain*>(domain)->SayHeldUp(token);
        }
    }

  private:
    static bool HasNews(std::span<Domain* const> domains, Take take) {
        return std::any_of(domains.begin(), domains.end(),
                           [&](Domain* domain) { return static_cast<LocalDomain*>(domain)->HasNews(take); });
    }

    static bool FallAsleep(std::span<Domain* const> domains, Take take) {
        bool quiet = true;
        for (Domain* domain : domains) {
            quiet = static_cast<LocalDomain*>(domain)->FallAsleep(take) && quiet;
        }
        return quiet;
    }

    /// Looks for news for a moment, if the peer that is likely to have some runs at the same time. An answer
    /// then comes sooner than the system could wake us.
    bool SpinForNews(std::span<Domain* const> domains, Take take) {
        const int here = m_system.Processor();
        bool worthIt = false;
        for (Domain* domain : domains) {
            worthIt = static_cast<LocalDomain*>(domain)->PeerRunsElsewhere(here) || worthIt;
        }
        if (!worthIt) {
            return false;
        }
        const Clock::time_point end = m_system.Now() + kSpin;
        do {
            for (int looks = 0; looks < kLooksBetweenTimes; ++looks) {
                for (Domain* domain : domains) {
                    if (static_cast<LocalDomain*>(domain)->HasLaneNews(take)) {
                        return true;
                    }
                }
                m_system.Pause();
            }
        } while (m_system.Now() < end);
        return false;
    }

    system::System& m_system;
    LocalSettings m_settings;
    KeptBlocks m_kept;
    std::vector<LocalDomain*> m_joined;
};

}  // namespace

std::unique_ptr<Transport> MakeLocalTransport(system::System& system, const LocalSettings& settings) {
    return std::make_unique<LocalTransport>(system, settings);
}

}  // namespace zyl::backbone::local
