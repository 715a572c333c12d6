// The tree map: random changes of several versions that share nodes, beside the standard map, with and without
// failing allocations.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <string>

#include "AllocationFaults.h"
#include "cow_Btree.h"
#include "cow_BtreeIterator.h"

namespace {

int g_entries[1000];

using Value = int*;
using Map = cow_Btree<cow_String, Value>;
using Holder = Map::Holder;
using Iterator = cow_BtreeIterator<cow_String, Value>;
using Model = std::map<std::string, Value>;

struct Version {
    std::unique_ptr<Map> map = std::make_unique<Map>();
    Model model;            ///< what the map holds; nothing is shared with it
    bool hasDepths = true;  ///< no allocation has failed between a change and the recomputation above it
};

/// Checks the order and the recorded depths of each map added, and in the end the counters of the shared nodes.
class Checker {
  public:
    void Add(const Version& version) {
        EXPECT_EQ(CheckSubtree(version.map->m_root, nullptr, nullptr, version.hasDepths),
                  version.map->Size());
    }

    /// A node is held by exactly as many slots as its counter says, and all of them count on the same counter.
    void CheckCounts() const {
        for (const auto& [node, holders] : m_holders) {
            for (const Holder* holder : holders) {
                EXPECT_EQ(holder->m_counter, (*holders.begin())->m_counter);
                EXPECT_EQ(holder->m_counter->References(), static_cast<int>(holders.size()));
            }
        }
    }

  private:
    int CheckSubtree(const Holder* holder, const cow_String* after, const cow_String* before,
                     bool hasDepths) {
        if (holder == nullptr) {
            return 0;
        }
        const Map::Node& node = holder->ConstGet();
        m_holders[&node].insert(holder);
        const cow_String& key = node.ConstGetKey();
        EXPECT_TRUE((after == nullptr || *after < key) && (before == nullptr || key < *before));
        for (const Holder* child : {node.m_left, node.m_right}) {
            EXPECT_TRUE(!hasDepths || child == nullptr || node.MaxDepth() > child->ConstGet().MaxDepth());
        }
        return 1 + CheckSubtree(node.m_left, after, &key, hasDepths) +
               CheckSubtree(node.m_right, &key, before, hasDepths);
    }

    std::map<const Map::Node*, std::set<const Holder*>> m_holders;
};

class BtreeScript : public testing::Test {
  protected:
    int Random(int below) { return static_cast<int>(m_random() % static_cast<unsigned>(below)); }
    Version& AnyVersion() { return m_versions[static_cast<std::size_t>(Random(4))]; }

    /// One random change of `version`, whose model then says what is to be expected. `failAt` makes an allocation
    /// of the map's change fail, unless it is 0.
    void Change(Version& version, int failAt) {
        const std::string name = std::to_string(Random(40));
        const cow_String key = name.c_str();
        const Value value = &g_entries[Random(1000)];
        const Version& source = AnyVersion();
        Model& model = version.model;
        Map& map = *version.map;
        const int action = Random(16);
        if (action < 2) {
            model = Model(source.model);
            version.hasDepths = source.hasDepths;
            AllocationFaults::FailAt(failAt);
            if (action == 0) {
                map = *source.map;
            } else {
                version.map.reset(source.map->Copy());
            }
        } else if (action == 2 && Random(8) == 0) {
            model.clear();
            map.Clear();
        } else if (action == 3) {
            const auto at = model.find(name);
            AllocationFaults::FailAt(failAt);
            Value& found = map.Get(key);
            ASSERT_EQ(found, at != model.end() ? at->second : nullptr);
            if (at != model.end()) {
                at->second = found = value;
            }
        } else if (action < 9) {
            const bool wasThere = model.erase(name) > 0;
            AllocationFaults::FailAt(failAt);
            ASSERT_EQ(map.Remove(key), wasThere);
        } else {
            const bool isNew = model.insert({name, value}).second;
            AllocationFaults::FailAt(failAt);
            ASSERT_EQ(map.InsertUnlessMember(key, value), isNew);
        }
    }

    static Model ContentOf(const Map& map) {
        Model content;
        Iterator iterator(map);
        for (iterator.First(); !iterator.IsDone(); iterator.Next()) {
            content.emplace_hint(content.end(), iterator.CurrentKey().CStr(), iterator.CurrentValue());
        }
        return content;
    }

    /// Walks to and fro, from one end to beyond either.
    void ExpectWalk(const Map& map, const Model& model) {
        Iterator iterator(map);
        EXPECT_TRUE(iterator.IsDone());
        const bool fromTheFront = Random(2) == 0;
        auto expected = fromTheFront || model.empty() ? model.begin() : std::prev(model.end());
        fromTheFront ? iterator.First() : iterator.Last();
        while (expected != model.end()) {
            ASSERT_FALSE(iterator.IsDone());
            ASSERT_EQ(iterator.CurrentKey().CStr(), expected->first);
            ASSERT_EQ(iterator.CurrentValue(), expected->second);
            ASSERT_EQ(map.ConstGet(iterator.CurrentKey()), expected->second);
            if ((Random(4) == 0) != fromTheFront) {
                iterator.Next();
                ++expected;
            } else {
                iterator.Previous();
                expected = expected == model.begin() ? model.end() : std::prev(expected);
            }
        }
        ASSERT_TRUE(iterator.IsDone());
    }

    void CheckEverything() {
        Checker checker;
        for (const Version& version : m_versions) {
            ASSERT_EQ(ContentOf(*version.map), version.model);
            ExpectWalk(*version.map, version.model);
            checker.Add(version);
        }
        checker.CheckCounts();
    }

    std::mt19937 m_random{20};
    const int m_blocks = AllocationFaults::LiveBlocks();
    std::array<Version, 4> m_versions;
};

TEST_F(BtreeScript, MatchesTheStandardMapAndAFailedAllocationLosesNothing) {
    int failures = 0;
    for (int step = 0; step < 5000 && !HasFailure(); ++step) {
        Version& version = AnyVersion();
        const Model before = version.model;
        try {
            Change(version, step < 2000 ? 0 : 1 + Random(12));
        } catch (const std::bad_alloc&) {
            ++failures;
            const Model content = ContentOf(*version.map);
            ASSERT_TRUE(content == before || content == version.model);
            version.model = content;
            version.hasDepths = false;
        }
        AllocationFaults::FailAt(0);
        CheckEverything();
    }
    EXPECT_GT(failures, 300);
    for (Version& version : m_versions) {
        version.map.reset();
    }
    EXPECT_EQ(AllocationFaults::LiveBlocks(), m_blocks);
}

}  // namespace
