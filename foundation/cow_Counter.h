#ifndef COW_COUNTER_H
#define COW_COUNTER_H

#include <cstdint>

#include "mem_AllocationOperators.h"

/// The number of holders that share a referent: a plain (non-atomic) count in an allocation of its own.
class cow_Counter : public mem_AllocationOperatorsTiny {
  public:
    /// The count of a referent with its first holder: 1.
    cow_Counter() = default;

    void Increment() { ++m_count; }
    /// Returns true if no holder is left.
    bool Decrement() { return --m_count == 0; }
    int References() const { return m_count; }

  private:
    std::int32_t m_count = 1;
};

#endif
