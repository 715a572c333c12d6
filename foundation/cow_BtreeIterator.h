#ifndef COW_BTREEITERATOR_H
#define COW_BTREEITERATOR_H

#include "cow_Btree.h"
#include "cow_BtreeNodeLink.h"

/// Walks a tree map in the order of its keys:
///
///     for (iterator.First(); !iterator.IsDone(); iterator.Next()) { ... iterator.CurrentKey() ... }
///
/// The iterator keeps pointers to the holders on its path: while it is positioned, its map must stay alive
/// and must not be changed, cleared or assigned. Find and Get are allowed on a map that shares no nodes,
/// because they then copy nothing. Each step allocates one stack entry for each node it pushes, and may
/// raise std::bad_alloc; nothing leaks then. The iterator never copies nodes. One thread at a time,
/// together with its map.
template <class K, class V>
class cow_BtreeIterator {
  public:
    /// Done until First() or Last().
    cow_BtreeIterator(const cow_Btree<K, V>& map) : m_map(&map) {}
    cow_BtreeIterator(const cow_BtreeIterator&) = delete;
    cow_BtreeIterator& operator=(const cow_BtreeIterator&) = delete;
    ~cow_BtreeIterator() { ClearStack(); }

    /// To the smallest key, or done if the map is empty.
    void First() { Restart(&Node::m_left); }
    /// To the greatest key, or done if the map is empty.
    void Last() { Restart(&Node::m_right); }
    /// To the next greater key, or done past the greatest; only while not done.
    void Next() { Step(&Node::m_right, &Node::m_left); }
    /// To the next smaller key, or done past the smallest; only while not done.
    void Previous() { Step(&Node::m_left, &Node::m_right); }

    bool IsDone() const { return m_top == nullptr; }
    /// Only while not done; valid as long as the entry.
    const K& CurrentKey() const { return Top().ConstGetKey(); }
    /// Only while not done; valid as long as the entry.
    const V& CurrentValue() const { return Top().ConstGetValue(); }

  private:
    using Node = cow_BtreeNode<K, V>;
    using Holder = typename Node::Holder;
    using Side = Holder* Node::*;

    const Node& Top() const { return m_top->Node()->ConstGet(); }
    void Restart(Side side);
    void Step(Side ahead, Side back);
    void PushAll(const Holder* holder, Side side);
    void Push(const Holder* holder) { m_top = new cow_BtreeNodeLink<K, V>(holder, m_top); }
    void Pop();
    void ClearStack();

    const cow_Btree<K, V>* m_map;
    cow_BtreeNodeLink<K, V>* m_top = nullptr;
};

template <class K, class V>
void cow_BtreeIterator<K, V>::Restart(Side side) {
    ClearStack();
    PushAll(m_map->m_root, side);
}

/// Moves on in the direction `ahead`: down into the subtree on that side, or up past all nodes whose
/// subtree on that side is finished.
template <class K, class V>
void cow_BtreeIterator<K, V>::Step(Side ahead, Side back) {
    if (const Holder* child = Top().*ahead) {
        PushAll(child, back);
        return;
    }
    const Holder* left = nullptr;
    do {
        left = m_top->Node();
        Pop();
    } while (!IsDone() && Top().*ahead == left);
}

/// Pushes a holder and the path from it to the end of one side; nothing if it is null.
template <class K, class V>
void cow_BtreeIterator<K, V>::PushAll(const Holder* holder, Side side) {
    for (; holder != nullptr; holder = holder->ConstGet().*side) {
        Push(holder);
    }
}

template <class K, class V>
void cow_BtreeIterator<K, V>::Pop() {
    if (cow_BtreeNodeLink<K, V>* top = m_top) {
        m_top = top->Next();
        delete top;
    }
}

template <class K, class V>
void cow_BtreeIterator<K, V>::ClearStack() {
    while (!IsDone()) {
        Pop();
    }
}

#endif
