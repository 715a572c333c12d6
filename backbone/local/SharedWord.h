#ifndef ZYL_BACKBONE_LOCAL_SHAREDWORD_H
#define ZYL_BACKBONE_LOCAL_SHAREDWORD_H

#include <atomic>
#include <cstdint>

namespace zyl::backbone::local {

#ifdef ZYL_BACKBONE_SIMULATED
/// The simulated system's processor: it may run another process before each of these, and lets a store take
/// effect only after later loads of other words, as processors do.
std::uint64_t SimulatedLoad(const std::atomic<std::uint64_t>& word);
void SimulatedStore(std::atomic<std::uint64_t>& word, std::uint64_t value);
void SimulatedFence();
#endif

/// A number in memory that two processes share. One of them writes it, both read it.
class SharedWord {
  public:
    /// What the writer wrote before the value is seen with it.
    std::uint64_t Load() const {
#ifdef ZYL_BACKBONE_SIMULATED
        return SimulatedLoad(m_value);
#else
        return m_value.load(std::memory_order_acquire);
#endif
    }
    void Store(std::uint64_t value) {
#ifdef ZYL_BACKBONE_SIMULATED
        SimulatedStore(m_value, value);
#else
        m_value.store(value, std::memory_order_release);
#endif
    }

  private:
    std::atomic<std::uint64_t> m_value;
};

/// Loads behind it see at least what was there when stores before it took effect: for "publish, then look
/// whether the other one sleeps".
inline void StoreLoadFence() {
#ifdef ZYL_BACKBONE_SIMULATED
    SimulatedFence();
#else
    std::atomic_thread_fence(std::memory_order_seq_cst);
#endif
}

}  // namespace zyl::backbone::local

#endif
