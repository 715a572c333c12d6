#include "ZYLBasTreeGeneric.h"

#include "mem_Allocation.h"

namespace {

struct BlockDeleter {
    void operator()(void* block) const noexcept { mem_Free(block); }
};

}  // namespace

void ZYLBasTreeGeneric::PairDeleter::operator()(void* pair) const noexcept {
    m_destroy(pair);
    mem_Free(pair);
}

ZYLBasTreeGeneric::ZYLBasTreeGeneric(const ZYLBasNodeOffsets& offsets,
                                     const ZYLBasReplicatorGeneric& replicator, Less less)
    : m_replicator(replicator), m_pairs(PairLess{offsets, less}) {}

ZYLBasTreeGeneric::ZYLBasTreeGeneric(const ZYLBasTreeGeneric& other)
    : m_replicator(other.m_replicator), m_pairs(other.m_pairs.key_comp()) {
    for (const OwnedPair& pair : other.m_pairs) {
        InsertUniqueAtPosition(End(), pair.get());
    }
}

ZYLBasTreeGeneric& ZYLBasTreeGeneric::operator=(const ZYLBasTreeGeneric& other) {
    if (this != &other) {
        ZYLBasTreeGeneric copy(other);
        m_replicator = copy.m_replicator;
        m_pairs.swap(copy.m_pairs);
    }
    return *this;
}

std::pair<ZYLBasTreeGeneric::Iterator, bool> ZYLBasTreeGeneric::InsertUnique(const void* pair) {
    const void* key = m_pairs.key_comp().Key(pair);
    const Iterator at = LowerBound(key);
    if (at != End() && !m_pairs.key_comp()(key, *at)) {
        return {at, false};
    }
    return {InsertUniqueAtPosition(at, pair), true};
}

ZYLBasTreeGeneric::Iterator ZYLBasTreeGeneric::InsertUniqueAtPosition(Iterator position, const void* pair) {
    return m_pairs.emplace_hint(position, Replicate(pair));
}

std::size_t ZYLBasTreeGeneric::Erase(const void* key) {
    const Iterator at = Find(key);
    if (at == End()) {
        return 0;
    }
    m_pairs.erase(at);
    return 1;
}

ZYLBasTreeGeneric::OwnedPair ZYLBasTreeGeneric::Replicate(const void* pair) const {
    std::unique_ptr<void, BlockDeleter> block(mem_OperatorNewThrow(m_replicator.m_pairSize));
    m_replicator.m_copy(block.get(), pair);
    return {block.release(), PairDeleter{m_replicator.m_destroy}};
}
