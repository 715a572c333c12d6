#ifndef MEM_ALLOCATIONOPERATORS_H
#define MEM_ALLOCATIONOPERATORS_H

#include <cstddef>

#include "mem_Allocation.h"

/// The forms of `new` and `delete` that go to the allocation library. None of them catches what its functions
/// raise (std::bad_alloc when memory is exhausted).

/// Base of every polymorphic class: its objects are made with `new` and destroyed with `delete` through their
/// virtual destructor, so that their memory returns to the allocation library and never to the C runtime's
/// `free`.
class mem_AllocationOperators {
  public:
    static void* operator new(std::size_t size) { return mem_OperatorNewThrow(size); }
    static void operator delete(void* object) { mem_Free(object); }
};

/// Base of very small objects that are made in great number, such as reference counts.
class mem_AllocationOperatorsTiny {
  public:
    static void* operator new(std::size_t size) { return mem_OperatorNewTinyThrow(size); }
    static void operator delete(void* object) { mem_Free(object); }
};

/// Base of the tree map, its nodes, holders and iterator stack entries.
class ZYLBasCowAllocator {
  public:
    static void* operator new(std::size_t size) { return mem_OperatorNewThrow(size); }
    static void operator delete(void* object) { mem_Free(object); }
};

/// Asks for a raw byte buffer: `new (mem_BuiltInAlloc{}) char[n]`.
struct mem_BuiltInAlloc {};

/// A raw byte buffer that the caller owns and frees with mem_deleteBuiltIn or mem_Free, never with
/// `delete[]`.
inline void* operator new[](std::size_t size, mem_BuiltInAlloc) {
    return mem_OperatorNewThrowBuiltin(size);
}

/// Frees a buffer of the form above; null is allowed.
inline void mem_deleteBuiltIn(char* buffer) {
    mem_Free(buffer);
}

/// Tells the system's placement form from the standard one: `new (p, ZYLBasPlacement{}) T`.
struct ZYLBasPlacement {};

/// Builds the object in the caller's memory.
inline void* operator new(std::size_t, void* place, ZYLBasPlacement) {
    return place;
}
/// The memory stays the caller's.
inline void operator delete(void*, void*, ZYLBasPlacement) {}

#endif
