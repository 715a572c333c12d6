#include "Arena.h"

#include <array>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

/// In front of every block; those of the world are in a ring.
struct alignas(std::max_align_t) Head {
    Head* before;
    Head* behind;
    std::size_t size;
    std::size_t owner;
};

constexpr std::size_t kNobody = simulated::arena::kOwners;

constinit Head g_ring{&g_ring, &g_ring, 0, kNobody};
std::size_t g_owner = kNobody;
std::array<std::size_t, simulated::arena::kOwners + 1> g_living;

void Free(Head* head) noexcept {
    head->before->behind = head->behind;
    head->behind->before = head->before;
    g_living[head->owner] -= head->size;
    std::free(head);
}

}  // namespace

namespace simulated::arena {

void Begin() {
    g_owner = 0;
}

void End() {
    g_owner = kNobody;
    while (g_ring.behind != &g_ring) {
        Free(g_ring.behind);
    }
}

std::size_t SetOwner(std::size_t owner) {
    return std::exchange(g_owner, owner);
}

std::size_t Living(std::size_t owner) {
    return g_living[owner];
}

}  // namespace simulated::arena

void* operator new(std::size_t size) {
    auto* const head = static_cast<Head*>(std::malloc(sizeof(Head) + size));
    if (head == nullptr) {
        throw std::bad_alloc();
    }
    *head = {head, head, size, g_owner};
    if (g_owner != kNobody) {
        head->before = &g_ring;
        head->behind = std::exchange(g_ring.behind, head);
        head->behind->before = head;
    }
    g_living[g_owner] += size;
    return head + 1;
}

void operator delete(void* block) noexcept {
    if (block != nullptr) {
        Free(static_cast<Head*>(block) - 1);
    }
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    operator delete(block);
}
