#ifndef ZYL_BACKBONE_SYSTEM_POSIX_POSIXSYSTEM_H
#define ZYL_BACKBONE_SYSTEM_POSIX_POSIXSYSTEM_H

#include "system/System.h"
#include "system/posix/Poller.h"
#include "system/posix/SpareDescriptors.h"

namespace zyl::backbone::system::posix {

/// Linux, as one process sees it.
class PosixSystem final : public System {
  public:
    PosixSystem();

    const Self& Me() const override { return m_self; }
    Clock::time_point Now() override { return Clock::now(); }
    Clock::time_point RoughlyNow() override;
    int Processor() override;
    void Pause() override;
    std::unique_ptr<Names> Join(const std::string& base, const std::string& domain) override;
    std::unique_ptr<Memory> MakeMemory(std::size_t size) override;
    void Wait(Deadline deadline) override { m_poller.Wait(deadline); }
    void Wake() noexcept override { m_poller.Wake(); }

  private:
    Self m_self;
    Poller m_poller;
    SpareDescriptors m_spares;
};

}  // namespace zyl::backbone::system::posix

#endif
