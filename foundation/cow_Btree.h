#ifndef COW_BTREE_H
#define COW_BTREE_H

#include <cstdint>

#include "BtreeCompare.h"
#include "cow_BtreeNode.h"
#include "cow_BtreeValue.h"
#include "mem_AllocationOperators.h"

/// An ordered map with unique keys and copy-on-write nodes: copying or assigning a map takes constant time
/// and one small allocation. A change copies only the shared nodes on its path, so other maps never see
/// it. cow_BtreeNode describes the sharing, BtreeCompare the order of keys.
///
/// The map owns its nodes and holders. Values are copied in; the objects that pointer values point to
/// belong to the caller.
///
/// Changes take a logarithmic number of steps and allocate at most as many nodes, each with a counter and
/// holders. Const lookups, sizes and depths allocate nothing. If memory is exhausted, std::bad_alloc
/// leaves the call: other maps are unchanged, and this one stays ordered and counted; the entry to be
/// inserted or removed may or may not be in it.
///
/// A map and all that share nodes with it are used by one thread at a time.
template <class K, class V>
class cow_Btree : public ZYLBasCowAllocator {
  public:
    /// Empty, with the null value cow_BtreeValue<V>::NullValue().
    cow_Btree() : m_nullValue(GetNullValue()) {}
    /// Shares the nodes of `other`.
    cow_Btree(const cow_Btree& other)
        : ZYLBasCowAllocator(),
          m_root(Share(other.m_root)),
          m_size(other.m_size),
          m_nullValue(other.m_nullValue) {}
    ~cow_Btree() { delete m_root; }

    /// Releases this map's nodes and shares those of `other`, with its null value. Unchanged if it raises.
    const cow_Btree& operator=(const cow_Btree& other);
    /// A new map that shares the nodes of this one; the caller owns it.
    cow_Btree* Copy() const { return new cow_Btree(*this); }

    /// Inserts the entry unless the key is present. Returns whether it inserted.
    bool InsertUnlessMember(const K& key, const V& value);
    /// Removes the entry. Returns whether the key was present.
    bool Remove(const K& key);
    /// Removes every entry; the null value stays.
    void Clear();

    bool IsMember(const K& key) const { return ConstFind(key) != nullptr; }
    /// The entry's value for writing, or this map's null value if the key is absent. Copies the shared
    /// nodes on the path in either case. Valid until the map is changed or copied.
    V& Get(const K& key);
    /// The entry's value, or the null value of this map if the key is absent. Valid until the map is
    /// changed.
    const V& ConstGet(const K& key) const;

    /// The result of Get and ConstGet for absent keys.
    const V& NullValue() const { return m_nullValue; }
    void SetNullValue(const V& value) { m_nullValue = value; }

    int Size() const { return m_size; }
    bool IsEmpty() const { return m_size == 0; }
    /// The depth recorded at the root, 0 for an empty map; never less than the true depth, see
    /// cow_BtreeNode.
    int Depth() const { return Node::Depth(m_root); }

    /// The order of the keys, with the sign of BtreeCompare.
    static int Compare(const K& a, const K& b) { return BtreeCompare(a, b); }

  private:
    friend class cow_BtreeIterator<K, V>;

    using Node = cow_BtreeNode<K, V>;
    using Holder = typename Node::Holder;

    /// A temporary parent for the root node during a removal. It borrows the root and returns the content
    /// of its slot to the map, even if the removal raises.
    struct RootParent {
        explicit RootParent(cow_Btree& map) : m_map(map), m_node(K(), map.m_nullValue) {
            m_node.m_left = map.m_root;
        }
        RootParent(const RootParent&) = delete;
        RootParent& operator=(const RootParent&) = delete;
        ~RootParent() {
            m_map.m_root = m_node.m_left;
            m_node.m_left = nullptr;
        }

        cow_Btree& m_map;
        Node m_node;
    };

    static Holder* Share(const Holder* root) { return root != nullptr ? new Holder(*root) : nullptr; }
    bool InsertEntry(const K& key, const V& value);
    bool RemoveEntry(const K& key);
    void CountAnew() { m_size = m_root != nullptr ? m_root->ConstGet().CountEntries() : 0; }
    Node* Find(const K& key) { return m_root != nullptr ? m_root->Get()->Find(key) : nullptr; }
    const Node* ConstFind(const K& key) const {
        return m_root != nullptr ? m_root->ConstGet().ConstFind(key) : nullptr;
    }
    V GetNullValue() { return cow_BtreeValue<V>::NullValue(); }

    Holder* m_root = nullptr;
    std::int32_t m_size = 0;
    V m_nullValue;
};

template <class K, class V>
const cow_Btree<K, V>& cow_Btree<K, V>::operator=(const cow_Btree& other) {
    if (this == &other) {
        return *this;
    }
    if (m_root != nullptr && other.m_root != nullptr) {
        *m_root = *other.m_root;
    } else {
        Holder* root = Share(other.m_root);
        delete m_root;
        m_root = root;
    }
    m_size = other.m_size;
    m_nullValue = other.m_nullValue;
    return *this;
}

// A rotation on the way back up may run out of memory after the entry was inserted or removed.
template <class K, class V>
bool cow_Btree<K, V>::InsertUnlessMember(const K& key, const V& value) {
    try {
        return InsertEntry(key, value);
    } catch (...) {
        CountAnew();
        throw;
    }
}

template <class K, class V>
bool cow_Btree<K, V>::InsertEntry(const K& key, const V& value) {
    if (m_root == nullptr) {
        m_root = new Holder(new Node(key, value));
    } else if (!m_root->Get()->InsertUnlessMember(key, value)) {
        return false;
    }
    ++m_size;
    Node::BalanceSlot(m_root);
    return true;
}

template <class K, class V>
bool cow_Btree<K, V>::Remove(const K& key) {
    try {
        return m_root != nullptr && RemoveEntry(key);
    } catch (...) {
        CountAnew();
        throw;
    }
}

template <class K, class V>
bool cow_Btree<K, V>::RemoveEntry(const K& key) {
    {
        RootParent parent(*this);
        if (!m_root->Get()->Remove(key, parent.m_node)) {
            return false;
        }
    }
    --m_size;
    Node::BalanceSlot(m_root);
    return true;
}

template <class K, class V>
void cow_Btree<K, V>::Clear() {
    delete m_root;
    m_root = nullptr;
    m_size = 0;
}

template <class K, class V>
V& cow_Btree<K, V>::Get(const K& key) {
    Node* node = Find(key);
    return node != nullptr ? node->GetValue() : m_nullValue;
}

template <class K, class V>
const V& cow_Btree<K, V>::ConstGet(const K& key) const {
    const Node* node = ConstFind(key);
    return node != nullptr ? node->ConstGetValue() : m_nullValue;
}

#endif
