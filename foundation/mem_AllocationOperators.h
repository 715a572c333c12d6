#ifndef MEM_ALLOCATIONOPERATORS_H
#define MEM_ALLOCATIONOPERATORS_H

#include <cstddef>
#include <new>  // the plain placement form, operator new(std::size_t, void*)

#include "ZYLFoundationExport.h"
#include "mem_Allocation.h"

/// The forms of `new` and `delete` that go to the allocation library. None of them catches what its functions
/// raise (std::bad_alloc when memory is exhausted).

/// Base of every polymorphic class: its objects are made with `new` and destroyed with `delete` through their
/// virtual destructor, so that their memory returns to the allocation library and never to the C runtime's
/// `free`.
class ZYLFOUNDATION_EXPORT mem_AllocationOperators {
  public:
    static void* operator new(std::size_t size);
    static void operator delete(void* object);
};

/// Base of very small objects that are made in great number, such as reference counts.
class ZYLFOUNDATION_EXPORT mem_AllocationOperatorsTiny {
  public:
    static void* operator new(std::size_t size);
    static void operator delete(void* object);
};

/// Base of the tree map, its nodes, holders and iterator stack entries.
class ZYLFOUNDATION_EXPORT ZYLBasCowAllocator {
  public:
    static void* operator new(std::size_t size);
    static void operator delete(void* object);
};

/// Asks for a raw byte buffer: `new (mem_BuiltInAlloc{}) char[n]`.
struct mem_BuiltInAlloc {};

/// A raw byte buffer that the caller owns and frees with mem_deleteBuiltIn or mem_Free, never with
/// `delete[]`.
ZYLFOUNDATION_EXPORT void* operator new[](std::size_t size, mem_BuiltInAlloc);

/// Frees a buffer of the form above; null is allowed.
ZYLFOUNDATION_EXPORT void mem_deleteBuiltIn(char* buffer);

/// Tells the system's placement form from the standard one: `new (p, ZYLBasPlacement{}) T`.
struct ZYLBasPlacement {};

/// Builds the object in the caller's memory.
ZYLFOUNDATION_EXPORT void* operator new(std::size_t size, void* place, ZYLBasPlacement) noexcept;
/// The memory stays the caller's.
ZYLFOUNDATION_EXPORT void operator delete(void* object, void* place, ZYLBasPlacement) noexcept;

#endif
