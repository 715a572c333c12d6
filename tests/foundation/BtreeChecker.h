#ifndef ZYL_TESTS_BTREECHECKER_H
#define ZYL_TESTS_BTREECHECKER_H

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "cow_Btree.h"

/// What the recorded depths of a map may be.
enum class Depths {
    kExact,        // 1 + the larger recorded depth of the children: insertions only
    kNotTooSmall,  // that or more: also removals
    kAny,          // an allocation has failed between a change and the recomputation above it
};

/// Checks the invariants of tree maps that may share nodes: Add each live map, then CheckCounts.
template <class K, class V>
class BtreeChecker {
  public:
    void Add(const cow_Btree<K, V>& map, Depths depths) {
        EXPECT_EQ(CheckSubtree(map.m_root, nullptr, nullptr, depths), map.Size());
    }

    /// A node is held by exactly as many slots as its counter says, and all of them count on the same
    /// counter.
    void CheckCounts() const {
        for (const auto& [node, holders] : m_holders) {
            for (const Holder* holder : holders) {
                EXPECT_EQ(holder->m_counter, (*holders.begin())->m_counter);
                EXPECT_EQ(holder->m_counter->References(), static_cast<int>(holders.size()));
            }
        }
    }

  private:
    using Node = cow_BtreeNode<K, V>;
    using Holder = typename Node::Holder;

    int CheckSubtree(const Holder* holder, const K* after, const K* before, Depths depths) {
        if (holder == nullptr) {
            return 0;
        }
        const Node& node = holder->ConstGet();
        m_holders[&node].insert(holder);
        const K& key = node.ConstGetKey();
        EXPECT_TRUE(after == nullptr || *after < key);
        EXPECT_TRUE(before == nullptr || key < *before);
        CheckDepth(node, depths);
        return 1 + CheckSubtree(node.m_left, after, &key, depths) +
               CheckSubtree(node.m_right, &key, before, depths);
    }

    static void CheckDepth(const Node& node, Depths depths) {
        int exact = 0;
        for (const Holder* child : {node.m_left, node.m_right}) {
            exact = std::max(exact, child != nullptr ? 1 + child->ConstGet().MaxDepth() : 0);
        }
        EXPECT_TRUE(depths == Depths::kAny || node.MaxDepth() >= exact);
        EXPECT_TRUE(depths != Depths::kExact || node.MaxDepth() == exact);
    }

    std::map<const Node*, std::set<const Holder*>> m_holders;
};

#endif
