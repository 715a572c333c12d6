#include "mem_Allocation.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kPage = 4096;
// Below this a block is copied too quickly for its alignment to matter, and a page's rounding would cost too
// much.
constexpr std::size_t kPageAlignedFrom = 65536;
// The C library learns from no block of more than 32 MiB, its own page of it included.
constexpr std::size_t kLargestLesson = std::size_t{32} * 1024 * 1024 - 2 * kPage;

/// A C library may give each freed block above some size back to the system, and then take its pages one by
/// one again with the next, which takes ten times as long as filling the block. It learns from what is freed
/// to keep blocks of that size, but counts an aligned one too small. A plain one, never touched, teaches it:
/// twice as large, for whoever copies a block has another one of its size.
void KeepForTheNext(std::size_t size) {
    static std::atomic<std::size_t> largest{0};
    if (size > largest.load(std::memory_order_relaxed)) {
        largest.store(size, std::memory_order_relaxed);
        void* volatile lesson = std::malloc(std::min(2 * size, kLargestLesson));
        std::free(lesson);
    }
}

void* AllocatePages(std::size_t size) {
    if (size > SIZE_MAX / 2 - kPage) {
        return nullptr;
    }
    KeepForTheNext(size + kPage);
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
