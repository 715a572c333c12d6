#ifndef COW_BTREENODE_H
#define COW_BTREENODE_H

#include <algorithm>
#include <cstdint>
#include <utility>

#include "BtreeCompare.h"
#include "cow_COW.h"
#include "cow_Direct.h"
#include "mem_AllocationOperators.h"

template <class K, class V>
class cow_Btree;
template <class K, class V>
class cow_BtreeIterator;

/// A node of a tree map: one entry and the subtrees of the keys that order before (left) and after (right)
/// its key.
///
/// All maps that reach a node share it through counting holders. The invariant: a node with more than one
/// holder is never changed. A change makes each holder on its way down exclusive first (cow_COW::Get),
/// which copies shared nodes, whether the key is found or not. The changing operations below are called
/// only on exclusive nodes. Each holder is owned by the one slot (a node's left or right, or a map's root)
/// that points to it.
///
/// The depth of a node is recomputed from the recorded depths of its children, never by walking down. A
/// missing child counts like a leaf, and there are only single rotations. If a removal moves a successor
/// up, the nodes between the successor's former parent and the top of its subtree keep their recorded
/// depth: it may be too large until a later change passes by.
///
/// If an allocation fails (std::bad_alloc), partly built nodes are freed, and the reachable nodes stay
/// ordered.
template <class K, class V>
class cow_BtreeNode : public ZYLBasCowAllocator {
  public:
    using Holder = cow_COW<cow_BtreeNode, cow_Direct<cow_BtreeNode>>;

    /// A leaf.
    cow_BtreeNode(const K& key, const V& value) : m_value(value), m_key(key) {}
    /// Copies the entry and the depth and shares the children: one holder is allocated for each.
    cow_BtreeNode(const cow_BtreeNode& other);
    cow_BtreeNode& operator=(const cow_BtreeNode&) = delete;
    ~cow_BtreeNode();

    const K& ConstGetKey() const { return m_key; }
    V& GetValue() { return m_value; }
    const V& ConstGetValue() const { return m_value; }
    /// 0 for a leaf, else 1 + the larger recorded depth of the children.
    int MaxDepth() const { return m_maxDepth; }

    /// The node with this key from here down, for writing, or null. Makes the whole path exclusive in
    /// either case.
    cow_BtreeNode* Find(const K& key);
    /// Find for reading; neither changes nor allocates.
    const cow_BtreeNode* ConstFind(const K& key) const;

    /// Inserts below this node unless the key is present. Returns whether it inserted.
    bool InsertUnlessMember(const K& key, const V& value);
    /// Removes the key from here down. Returns whether it was present. `parent` is the node whose slot
    /// holds this one; this node may no longer exist afterwards.
    bool Remove(const K& key, cow_BtreeNode& parent);

    /// Rotates once if the recorded depths of the children differ by 2 or more. `self` is the holder of
    /// this node. Returns the holder of the node that is now on top, for the slot that had `self`, or null
    /// if nothing changed. Allocates only if the child that comes up is shared.
    Holder* Balance(Holder* self);

  private:
    friend class cow_Btree<K, V>;
    friend class cow_BtreeIterator<K, V>;

    int Compare(const K& a, const K& b) const { return BtreeCompare(a, b); }
    Holder*& Slot(int comparison) { return comparison > 0 ? m_right : m_left; }
    static int Depth(const Holder* slot) { return slot != nullptr ? slot->ConstGet().m_maxDepth : 0; }
    static void BalanceSlot(Holder*& slot);
    int CountEntries() const;
    void RemoveNode(cow_BtreeNode* child, Holder* replacement);
    void SetMaxDepth();
    Holder* ReleaseSubtrees();
    Holder* ReleaseToSuccessor();

    V m_value;
    K m_key;
    Holder* m_left = nullptr;
    Holder* m_right = nullptr;
    std::int32_t m_maxDepth = 0;
};

// After delegation the object counts as constructed, so the destructor frees the first holder if the
// allocation of the second fails.
template <class K, class V>
cow_BtreeNode<K, V>::cow_BtreeNode(const cow_BtreeNode& other) : cow_BtreeNode(other.m_key, other.m_value) {
    if (other.m_left != nullptr) {
        m_left = new Holder(*other.m_left);
    }
    if (other.m_right != nullptr) {
        m_right = new Holder(*other.m_right);
    }
    m_maxDepth = other.m_maxDepth;
}

template <class K, class V>
cow_BtreeNode<K, V>::~cow_BtreeNode() {
    delete m_left;
    delete m_right;
}

template <class K, class V>
cow_BtreeNode<K, V>* cow_BtreeNode<K, V>::Find(const K& key) {
    cow_BtreeNode* node = this;
    while (const int comparison = Compare(node->m_key, key)) {
        Holder* child = node->Slot(comparison);
        if (child == nullptr) {
            return nullptr;
        }
        node = child->Get();
    }
    return node;
}

template <class K, class V>
const cow_BtreeNode<K, V>* cow_BtreeNode<K, V>::ConstFind(const K& key) const {
    const cow_BtreeNode* node = this;
    while (const int comparison = Compare(node->m_key, key)) {
        const Holder* child = comparison > 0 ? node->m_right : node->m_left;
        if (child == nullptr) {
            return nullptr;
        }
        node = &child->ConstGet();
    }
    return node;
}

// `new Holder(new cow_BtreeNode(...))` leaks nothing wherever an allocation fails: the memory of the
// holder is allocated first, and the holder adopts the node before it allocates its counter.
template <class K, class V>
bool cow_BtreeNode<K, V>::InsertUnlessMember(const K& key, const V& value) {
    const int comparison = Compare(m_key, key);
    if (comparison == 0) {
        return false;
    }
    Holder*& slot = Slot(comparison);
    if (slot == nullptr) {
        slot = new Holder(new cow_BtreeNode(key, value));
    } else if (slot->Get()->InsertUnlessMember(key, value)) {
        BalanceSlot(slot);
    } else {
        return false;
    }
    SetMaxDepth();
    return true;
}

template <class K, class V>
bool cow_BtreeNode<K, V>::Remove(const K& key, cow_BtreeNode& parent) {
    const int comparison = Compare(m_key, key);
    if (comparison == 0) {
        parent.RemoveNode(this, ReleaseSubtrees());
        return true;
    }
    Holder*& slot = Slot(comparison);
    if (slot == nullptr || !slot->Get()->Remove(key, *this)) {
        return false;
    }
    BalanceSlot(slot);
    SetMaxDepth();
    return true;
}

template <class K, class V>
typename cow_BtreeNode<K, V>::Holder* cow_BtreeNode<K, V>::Balance(Holder* self) {
    const int lean = Depth(m_right) - Depth(m_left);
    if (lean > -2 && lean < 2) {
        return nullptr;
    }
    Holder* top = Slot(lean);
    cow_BtreeNode* risen = top->Get();
    Slot(lean) = risen->Slot(-lean);
    risen->Slot(-lean) = self;
    SetMaxDepth();
    risen->SetMaxDepth();
    return top;
}

/// Balances the subtree in a slot, if there is one.
template <class K, class V>
void cow_BtreeNode<K, V>::BalanceSlot(Holder*& slot) {
    if (slot == nullptr) {
        return;
    }
    if (Holder* top = slot->Get()->Balance(slot)) {
        slot = top;
    }
}

template <class K, class V>
int cow_BtreeNode<K, V>::CountEntries() const {
    int count = 1;
    for (const Holder* child : {m_left, m_right}) {
        count += child != nullptr ? child->ConstGet().CountEntries() : 0;
    }
    return count;
}

/// Puts `replacement` into the slot of `child` and releases `child` with its holder.
template <class K, class V>
void cow_BtreeNode<K, V>::RemoveNode(cow_BtreeNode* child, Holder* replacement) {
    Holder*& slot = m_right != nullptr && m_right->GetPtr() == child ? m_right : m_left;
    delete slot;
    slot = replacement;
    SetMaxDepth();
}

template <class K, class V>
void cow_BtreeNode<K, V>::SetMaxDepth() {
    const bool isLeaf = m_left == nullptr && m_right == nullptr;
    m_maxDepth = isLeaf ? 0 : 1 + std::max(Depth(m_left), Depth(m_right));
}

/// Joins this node's subtrees into one that can replace this node, and detaches them.
template <class K, class V>
typename cow_BtreeNode<K, V>::Holder* cow_BtreeNode<K, V>::ReleaseSubtrees() {
    if (m_right == nullptr) {
        return std::exchange(m_left, nullptr);
    }
    if (m_left == nullptr) {
        return std::exchange(m_right, nullptr);
    }
    return ReleaseToSuccessor();
}

/// ReleaseSubtrees of a node with both subtrees: the node with the next greater key becomes the top.
/// Everything that can raise happens before the first slot changes.
template <class K, class V>
typename cow_BtreeNode<K, V>::Holder* cow_BtreeNode<K, V>::ReleaseToSuccessor() {
    cow_BtreeNode* parent = nullptr;
    cow_BtreeNode* successor = m_right->Get();
    while (successor->m_left != nullptr) {
        parent = successor;
        successor = successor->m_left->Get();
    }
    Holder* top = m_right;
    if (parent != nullptr) {
        top = parent->m_left;
        parent->m_left = successor->m_right;
        successor->m_right = m_right;
        parent->SetMaxDepth();
    }
    m_right = nullptr;
    successor->m_left = std::exchange(m_left, nullptr);
    successor->SetMaxDepth();
    return top;
}

#endif
