#include "mem_Copy.h"

#include <cstdint>
#include <cstring>

namespace {

constexpr std::uintptr_t kPage = 4096;
constexpr std::size_t kBlock = 64;
// The widest load of the C library's memcpy; a target further ahead than that does not alias.
constexpr std::uintptr_t kWidestLoad = 32;

/// Whether an upward copy suffers from 4K aliasing: the processor compares only the low 12 address bits of
/// a load with those of pending stores at first, so each load waits for an unrelated store just before it.
bool Has4KAliasing(const char* to, const char* from) {
    const std::uintptr_t ahead =
        (reinterpret_cast<std::uintptr_t>(to) - reinterpret_cast<std::uintptr_t>(from)) % kPage;
    return ahead > 0 && ahead < kWidestLoad;
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
    if (Has4KAliasing(target, source)) {
        CopyDownwards(target, source, size);
    } else {
        std::memcpy(target, source, size);
    }
}
