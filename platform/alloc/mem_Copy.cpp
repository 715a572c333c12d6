#include "mem_Copy.h"

#include <cstdint>
#include <cstring>

namespace {

constexpr std::uintptr_t kPage = 4096;
constexpr std::size_t kBlock = 64;
// A target this far ahead of its source, or further, is out of the load's way.
constexpr std::uintptr_t kClear = 32;

/// Going upwards, each load would come right after a store to the same place of another page, and the
/// processor, which tells addresses apart by their place in the page first, would wait for that store.
bool LoadsChaseStores(const char* to, const char* from) {
    const std::uintptr_t ahead =
        (reinterpret_cast<std::uintptr_t>(to) - reinterpret_cast<std::uintptr_t>(from)) % kPage;
    return ahead > 0 && ahead < kClear;
}

void CopyDownwards(char* to, const char* from, std::size_t size) {
    while (size >= kBlock) {
        size -= kBlock;
        char block[kBlock];
        std::memcpy(block, from + size, kBlock);
        std::memcpy(to + size, block, kBlock);
    }
    std::memcpy(to, from, size);
}

}  // namespace

void mem_CopyLarge(void* to, const void* from, std::size_t size) {
    auto* const target = static_cast<char*>(to);
    const auto* const source = static_cast<const char*>(from);
    if (LoadsChaseStores(target, source)) {
        CopyDownwards(target, source, size);
    } else {
        std::memcpy(target, source, size);
    }
}
