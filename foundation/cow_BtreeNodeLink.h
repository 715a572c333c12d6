#ifndef COW_BTREENODELINK_H
#define COW_BTREENODELINK_H

#include "cow_BtreeNode.h"
#include "mem_AllocationOperators.h"

/// An entry of a tree map iterator's stack: a holder on its path and the entry below. It owns neither; the
/// iterator frees its entries one by one.
template <class K, class V>
class cow_BtreeNodeLink : public ZYLBasCowAllocator {
  public:
    using Holder = typename cow_BtreeNode<K, V>::Holder;

    /// `next` is the entry below, or null.
    cow_BtreeNodeLink(const Holder* node, cow_BtreeNodeLink* next) : m_node(node), m_next(next) {}
    ~cow_BtreeNodeLink() = default;

    const Holder* Node() const { return m_node; }
    cow_BtreeNodeLink* Next() const { return m_next; }

  private:
    const Holder* m_node;
    cow_BtreeNodeLink* m_next;
};

#endif
