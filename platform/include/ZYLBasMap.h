#ifndef ZYLBASMAP_H
#define ZYLBASMAP_H

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "ZYLBasPair.h"
#include "ZYLBasTreeGeneric.h"

/// An ordered map with unique keys, ascending by the key type's `operator<`: a typed layer over
/// ZYLBasTreeGeneric, with the same costs, iterator validity and exception guarantees. Copies are deep.
/// One thread at a time.
///
/// K and V are copyable, of standard layout and of ordinary alignment.
template <class K, class V>
class ZYLBasMap {
    using Pair = ZYLBasPair<K, V>;

    template <class P>
    class Position {
      public:
        explicit Position(ZYLBasTreeGeneric::Iterator at) : m_at(at) {}

        P& operator*() const { return *static_cast<P*>(m_at->get()); }
        P* operator->() const { return &**this; }
        Position& operator++() {
            ++m_at;
            return *this;
        }
        bool operator==(const Position&) const = default;

      private:
        ZYLBasTreeGeneric::Iterator m_at;
    };

  public:
    /// Forward iterators in ascending order; `->first` is the key, `->second` the value.
    using iterator = Position<Pair>;
    using const_iterator = Position<const Pair>;

    /// An empty map.
    ZYLBasMap()
        : m_tree(ZYLBasNodeOffsets{offsetof(Pair, first)},
                 ZYLBasReplicatorGeneric{sizeof(Pair), CopyPair, DestroyPair}, KeyLess) {}

    iterator begin() { return iterator(m_tree.Begin()); }
    iterator end() { return iterator(m_tree.End()); }
    const_iterator begin() const { return const_iterator(m_tree.Begin()); }
    const_iterator end() const { return const_iterator(m_tree.End()); }
    std::size_t size() const { return m_tree.Size(); }

    /// The entry with this key, or end().
    iterator find(const K& key) { return iterator(m_tree.Find(&key)); }
    const_iterator find(const K& key) const { return const_iterator(m_tree.Find(&key)); }

    /// The value of this key. An absent key is inserted with a default value.
    V& operator[](const K& key) {
        auto at = m_tree.LowerBound(&key);
        if (at == m_tree.End() || key < (*iterator(at)).first) {
            const Pair entry(key, V());
            at = m_tree.InsertUniqueAtPosition(at, &entry);
        }
        return iterator(at)->second;
    }

    /// Inserts a copy of `entry` unless its key is present. Returns the entry with that key and whether it
    /// is new.
    std::pair<iterator, bool> insert(const Pair& entry) {
        const auto [at, isNew] = m_tree.InsertUnique(&entry);
        return {iterator(at), isNew};
    }

    /// Erases the entry with this key; returns the number erased, 0 or 1.
    std::size_t erase(const K& key) { return m_tree.Erase(&key); }

  private:
    static_assert(std::is_standard_layout_v<Pair> && alignof(Pair) <= alignof(std::max_align_t));

    static void CopyPair(void* to, const void* from) { ::new (to) Pair(*static_cast<const Pair*>(from)); }
    static void DestroyPair(void* pair) noexcept { std::destroy_at(static_cast<Pair*>(pair)); }
    static bool KeyLess(const void* a, const void* b) {
        return *static_cast<const K*>(a) < *static_cast<const K*>(b);
    }

    ZYLBasTreeGeneric m_tree;
};

#endif
