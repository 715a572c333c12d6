#include "mem_Allocation.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kPage = 4096;
// Smaller blocks are copied too fast for alignment to matter, and rounding them to pages would waste
// memory.
constexpr std::size_t kPageAlignedFrom = 65536;
// The largest mmap threshold that the C library adopts, 32 MiB, less its own header, rounded to pages.
constexpr std::size_t kLargestThreshold = std::size_t{32} * 1024 * 1024 - 2 * kPage;

/// Raises the mmap threshold of the C library above `size`. A larger block comes from mmap and goes back
/// with munmap, so that every next block of its size faults its pages in again, which takes ten times as
/// long as filling it. The C library raises the threshold to the size of each mmapped block that is freed,
/// but underrates an aligned one; a plain block, allocated and freed untouched, raises it reliably. It has
/// twice the size because whoever copies a block holds two of that size.
void RaiseMmapThreshold(std::size_t size) {
    static std::atomic<std::size_t> largest{0};
    if (size > largest.load(std::memory_order_relaxed)) {
        largest.store(size, std::memory_order_relaxed);
        void* volatile block = std::malloc(std::min(2 * size, kLargestThreshold));
        std::free(block);
    }
}

void* AllocatePages(std::size_t size) {
    if (size > SIZE_MAX / 2 - kPage) {
        return nullptr;
    }
    RaiseMmapThreshold(size + kPage);
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
