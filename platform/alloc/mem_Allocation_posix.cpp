#include "mem_Allocation.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kPage = 4096;
// Below this a block is copied too quickly for its alignment to matter, and a page's rounding would cost too
// much.
constexpr std::size_t kPageAlignedFrom = 65536;

void* AllocatePages(std::size_t size) {
    if (size > SIZE_MAX - kPage) {
        return nullptr;
    }
    return std::aligned_alloc(kPage, (size + kPage - 1) / kPage * kPage);
}

void* Allocate(std::size_t size) {
    void* block =
        size >= kPageAlignedFrom ? AllocatePages(size) : std::malloc(std::max<std::size_t>(size, 1));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

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
    std::free(block);
}
