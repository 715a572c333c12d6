#ifndef ZYLBASTREEGENERIC_H
#define ZYLBASTREEGENERIC_H

#include <cstddef>
#include <memory>
#include <set>
#include <utility>

#include "ZYLBasNodeOffsets.h"
#include "ZYLBasReplicatorGeneric.h"
#include "ZYLPlatformExport.h"

/// An ordered tree of key/value pairs with unique keys. It knows the types of the pairs only through a
/// layout, a replicator and a comparator. It owns its pairs, each in a block of the allocation library
/// aligned for built-in types. ZYLBasMap is the typed layer over it.
///
/// Operations are logarithmic in the number of pairs. Iterators and pairs stay valid until their pair is
/// erased or the tree is assigned or destroyed. An operation that raises (std::bad_alloc, or an exception
/// of a copied pair) leaves the tree unchanged. One thread at a time.
class ZYLPLATFORM_EXPORT ZYLBasTreeGeneric {
  public:
    /// Whether the key at `a` orders before the key at `b`: a strict weak ordering.
    using Less = bool (*)(const void* a, const void* b);

    /// Destroys and frees a pair.
    struct PairDeleter {
        void (*m_destroy)(void* pair) noexcept;
        void operator()(void* pair) const noexcept;
    };
    /// A pair and its ownership.
    using OwnedPair = std::unique_ptr<void, PairDeleter>;

    /// Orders pairs by their keys, also beside a bare key.
    struct PairLess {
        using is_transparent = void;
        ZYLBasNodeOffsets m_offsets;
        Less m_less;

        const void* Key(const void* pair) const { return static_cast<const char*>(pair) + m_offsets.m_key; }
        bool operator()(const OwnedPair& a, const OwnedPair& b) const {
            return m_less(Key(a.get()), Key(b.get()));
        }
        bool operator()(const OwnedPair& a, const void* key) const { return m_less(Key(a.get()), key); }
        bool operator()(const void* key, const OwnedPair& b) const { return m_less(key, Key(b.get())); }
    };

    /// Walks in ascending order; `it->get()` is the pair.
    using Iterator = std::set<OwnedPair, PairLess>::const_iterator;

    ZYLBasTreeGeneric(const ZYLBasNodeOffsets& offsets, const ZYLBasReplicatorGeneric& replicator, Less less);
    /// Deep copies: each pair is replicated.
    ZYLBasTreeGeneric(const ZYLBasTreeGeneric& other);
    ZYLBasTreeGeneric& operator=(const ZYLBasTreeGeneric& other);
    ~ZYLBasTreeGeneric() = default;

    Iterator Begin() const { return m_pairs.begin(); }
    Iterator End() const { return m_pairs.end(); }
    std::size_t Size() const { return m_pairs.size(); }

    /// The pair with this key, or End().
    Iterator Find(const void* key) const { return m_pairs.find(key); }
    /// The first pair whose key does not order before this one, or End().
    Iterator LowerBound(const void* key) const { return m_pairs.lower_bound(key); }

    /// Replicates `pair` into the tree unless its key is present. Returns the entry with that key and
    /// whether it is new.
    std::pair<Iterator, bool> InsertUnique(const void* pair);
    /// InsertUnique with a hint that the pair belongs right before `position`. Constant time if the hint
    /// is right, logarithmic if not. Returns the entry with the pair's key, new or not.
    Iterator InsertUniqueAtPosition(Iterator position, const void* pair);

    /// Erases the pair with this key; returns the number erased, 0 or 1.
    std::size_t Erase(const void* key);

  private:
    OwnedPair Replicate(const void* pair) const;

    ZYLBasReplicatorGeneric m_replicator;
    std::set<OwnedPair, PairLess> m_pairs;
};

#endif
