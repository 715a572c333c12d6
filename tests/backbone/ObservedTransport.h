#ifndef ZYL_TESTS_BACKBONE_OBSERVEDTRANSPORT_H
#define ZYL_TESTS_BACKBONE_OBSERVEDTRANSPORT_H

#include <functional>
#include <memory>
#include <utility>

#include "local/LocalTransport.h"

/// The local transport with a hook in front of each of its waits: the moment at which a sender is held up,
/// with part of its message on the way, is then known without a clock.
class ObservedTransport final : public zyl::backbone::Transport {
  public:
    using Hook = std::function<void(int nth)>;

    /// `hook` is called with 1 before the first wait, and so on.
    ObservedTransport(const zyl::backbone::Settings& settings, Hook hook)
        : m_inner(zyl::backbone::MakeLocalTransport(settings)), m_hook(std::move(hook)) {}

    std::unique_ptr<zyl::backbone::Domain> Join(const std::string& name) override {
        return m_inner->Join(name);
    }
    void Wait(std::span<zyl::backbone::Domain* const> domains, zyl::backbone::Deadline deadline,
              zyl::backbone::Take take) override {
        m_hook(++m_waits);
        m_inner->Wait(domains, deadline, take);
    }
    void SayHeldUp(std::uint64_t token) override { m_inner->SayHeldUp(token); }
    zyl::backbone::Peer Self() const override { return m_inner->Self(); }

  private:
    std::unique_ptr<zyl::backbone::Transport> m_inner;
    Hook m_hook;
    int m_waits = 0;
};

#endif
