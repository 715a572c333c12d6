#ifndef ZYLBASREFCOUNTER_H
#define ZYLBASREFCOUNTER_H

#include <cstdint>

#include "mem_AllocationOperators.h"

/// The counter block of an object that is owned by shared pointers. Plain counts, for one thread.
class ZYLBasRefCounter : public mem_AllocationOperatorsTiny {
  public:
    std::uint32_t m_count = 0;      ///< shared pointers that own the object
    std::uint32_t m_weakCount = 0;  ///< keeps the block, not the object, while it is not 0
};

#endif
