#include "mem_AllocationOperators.h"

void* mem_AllocationOperators::operator new(std::size_t size) {
    return mem_OperatorNewThrow(size);
}
void mem_AllocationOperators::operator delete(void* object) {
    mem_Free(object);
}

void* mem_AllocationOperatorsTiny::operator new(std::size_t size) {
    return mem_OperatorNewTinyThrow(size);
}
void mem_AllocationOperatorsTiny::operator delete(void* object) {
    mem_Free(object);
}

void* ZYLBasCowAllocator::operator new(std::size_t size) {
    return mem_OperatorNewThrow(size);
}
void ZYLBasCowAllocator::operator delete(void* object) {
    mem_Free(object);
}

void* operator new[](std::size_t size, mem_BuiltInAlloc) {
    return mem_OperatorNewThrowBuiltin(size);
}
void mem_deleteBuiltIn(char* buffer) {
    mem_Free(buffer);
}

void* operator new(std::size_t /*size*/, void* place, ZYLBasPlacement) noexcept {
    return place;
}
void operator delete(void* /*object*/, void* /*place*/, ZYLBasPlacement) noexcept {}
