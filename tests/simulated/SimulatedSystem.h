#ifndef ZYL_TESTS_SIMULATED_SIMULATEDSYSTEM_H
#define ZYL_TESTS_SIMULATED_SIMULATEDSYSTEM_H

#include "World.h"
#include "system/System.h"

namespace simulated {

/// The seam to operating systems, as one process of the current world sees it. Each call is a point at which
/// the world may do something else.
class SimulatedSystem final : public zyl::backbone::system::System {
  public:
    explicit SimulatedSystem(Process& process) : m_process(process) {}

    const zyl::backbone::system::Self& Me() const override { return m_process.self; }
    Clock::time_point Now() override;
    Clock::time_point RoughlyNow() override;
    int Processor() override { return m_process.number % 2; }
    void Pause() override;
    std::unique_ptr<zyl::backbone::system::Names> Join(const std::string& base,
                                                       const std::string& domain) override;
    std::unique_ptr<zyl::backbone::system::Memory> MakeMemory(std::size_t size) override;
    void Wait(Deadline deadline) override;
    void Wake() noexcept override { m_process.woken = true; }

  private:
    bool TellAll();

    Process& m_process;
};

}  // namespace simulated

#endif
