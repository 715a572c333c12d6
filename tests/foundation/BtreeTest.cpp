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
#include "atr_NaturalOrder.h"
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

/// Random changes of several versions that share nodes, with and without failing allocations.
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

using IntMap = cow_Btree<int, int*>;

void Insert(IntMap& map, std::initializer_list<int> keys) {
    for (const int key : keys) {
        EXPECT_TRUE(map.InsertUnlessMember(key, g_entries));
    }
}

/// A subtree as "key/depth(left,right)", a leaf without the parentheses.
std::string Shape(const IntMap::Holder* slot) {
    if (slot == nullptr) {
        return "";
    }
    const IntMap::Node& node = slot->ConstGet();
    const std::string top = std::to_string(node.ConstGetKey()) + "/" + std::to_string(node.MaxDepth());
    const std::string children = Shape(node.m_left) + "," + Shape(node.m_right);
    return children == "," ? top : top + "(" + children + ")";
}

TEST(BtreeTest, SingleRotationsKeepItFlatAndASuccessorTakesARemovedPlace) {
    const struct {
        std::initializer_list<int> keys;
        int removed;  // 0 for none
        const char* shape;
    } cases[] = {
        {{1, 2, 3}, 0, "1/2(,2/1(,3/0))"},
        {{1, 2, 3, 4}, 0, "2/2(1/0,3/1(,4/0))"},
        {{1, 2, 3, 4, 5}, 0, "3/2(2/1(1/0,),4/1(,5/0))"},
        {{5, 4, 3, 2}, 0, "4/2(3/1(2/0,),5/0)"},
        {{5, 1, 4, 3}, 0, "1/3(,5/2(4/1(3/0,),))"},  // a rotation that gains nothing
        {{2, 1, 3, 4}, 2, "3/1(1/0,4/0)"},
        {{4, 2, 8, 1, 6, 9, 5}, 4, "5/3(2/1(1/0,),8/2(6/0,9/0))"},  // 8 keeps its depth
        {{4, 2, 6, 1, 7, 8}, 2, "6/2(4/1(1/0,),7/1(,8/0))"},
        {{3, 2, 4, 5}, 2, "3/2(,4/1(,5/0))"},
    };
    for (const auto& c : cases) {
        IntMap map;
        Insert(map, c.keys);
        EXPECT_EQ(map.Remove(c.removed), c.removed != 0);
        EXPECT_EQ(Shape(map.m_root), c.shape);
    }
}

TEST(BtreeTest, CopiesAndLookupsAllocateNoMoreThanThePathThatTheyUnshare) {
    IntMap map;
    Insert(map, {4, 2, 6, 1, 3, 5, 7});
    const auto allocations = [](auto change) {
        const int before = AllocationFaults::Allocations();
        change();
        return AllocationFaults::Allocations() - before;
    };
    std::unique_ptr<IntMap> copy;
    EXPECT_EQ(allocations([&] { copy.reset(map.Copy()); }), 2) << "the map itself and one holder";
    EXPECT_EQ(allocations([&] { *copy = map; }), 0);
    EXPECT_EQ(allocations([&] { EXPECT_EQ(copy->ConstGet(1), g_entries); }), 0);
    // A node that is unshared is copied, with a counter and holders for its children.
    EXPECT_EQ(allocations([&] { EXPECT_EQ(copy->Get(4), g_entries); }), 4);
    EXPECT_EQ(allocations([&] { EXPECT_FALSE(copy->Remove(8)); }), 6);
}

TEST(BtreeTest, AbsentKeysGiveTheNullValueWhichClearKeepsAndAssignmentTakesOver) {
    IntMap map, other;
    EXPECT_EQ(map.Get(1), nullptr);
    map.SetNullValue(g_entries);
    Insert(map, {1, 2});
    EXPECT_EQ(map.Depth(), 1);
    map.Clear();
    EXPECT_TRUE(map.IsEmpty());
    other = map;
    EXPECT_EQ(other.Get(1), g_entries);
}

TEST(BtreeTest, NamesCompareByUnsignedBytesOrWhileTheSwitchIsSetInNaturalOrder) {
    const cow_String file9("file9"), file10("file10"), noText;
    EXPECT_EQ(BtreeCompare(file10, file9), 1);
    EXPECT_EQ(BtreeCompare("\xC3\xA4", "z"), -1);
    EXPECT_EQ(BtreeCompare(noText, ""), 0);
    EXPECT_TRUE(noText == "" && file9 != "File9" && file9 == cow_String("file9") && file10 < file9);
    atr_setNaturalOrder(1);
    EXPECT_LT(BtreeCompare(file10, file9), 0);
    atr_setNaturalOrder(0);
}

struct Referent : ZYLBasCowAllocator {};

TEST(Holder, ReferentLivesAsLongAsItsHoldersAndIsCopiedForWritingWhenShared) {
    const int blocks = AllocationFaults::LiveBlocks();
    {
        cow_COW<Referent> first(new Referent), second(first);
        EXPECT_TRUE(first.Identical(second) && !first.Exclusive());
        EXPECT_NE(second.Get(), first.GetPtr());
        EXPECT_TRUE(first.Exclusive() && second.Exclusive());
        EXPECT_EQ(second.Get(), second.GetPtr()) << "an exclusive referent is not copied";
        second = first;
        const cow_COW<Referent>& self = second;
        second = self;
        EXPECT_EQ(AllocationFaults::LiveBlocks() - blocks, 2) << "one referent with its counter";
        second = new Referent;
        second = new Referent;
        EXPECT_EQ(AllocationFaults::LiveBlocks() - blocks, 4);
        EXPECT_TRUE(cow_CountedHld<Referent>().IsNull());
    }
    EXPECT_EQ(AllocationFaults::LiveBlocks(), blocks);
}

TEST(CowString, AssignmentSharesAndSurvivesItself) {
    cow_String a("first");
    const cow_String& self = a;
    a = self;
    const cow_String b = a;
    EXPECT_EQ(a.CStr(), b.CStr());
    a = cow_String();
    EXPECT_STREQ(b.CStr(), "first");
}

}  // namespace
