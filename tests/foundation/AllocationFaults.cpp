#include "AllocationFaults.h"

#include <cstdlib>
#include <new>

#include "mem_Allocation.h"

namespace {

int g_live = 0;
int g_failAt = 0;

void* Allocate(std::size_t size) {
    if (g_failAt > 0 && --g_failAt == 0) {
        throw std::bad_alloc();
    }
    ++g_live;
    return std::malloc(size + 1);
}

}  // namespace

int AllocationFaults::LiveBlocks() {
    return g_live;
}
void AllocationFaults::FailAt(int nth) {
    g_failAt = nth;
}

void* mem_OperatorNewThrow(std::size_t size) {
    return Allocate(size);
}
void* mem_OperatorNewTinyThrow(std::size_t size) {
    return Allocate(size);
}
void* mem_OperatorNewThrowBuiltin(std::size_t size) {
    return Allocate(size);
}

void mem_Free(void* block) noexcept {
    g_live -= block != nullptr ? 1 : 0;
    std::free(block);
}
