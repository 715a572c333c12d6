#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <new>
#include <set>
#include <string>

#include "AllocationFaults.h"
#include "BtreeChecker.h"
#include "atr_NaturalOrder.h"
#include "cow_Btree.h"
#include "cow_BtreeIterator.h"

namespace {

struct Entry {};
Entry g_entries[2];

using Map = cow_Btree<int, Entry*>;
using NameMap = cow_Btree<cow_String, Entry*>;

/// A value that tells odd keys from even ones.
Entry* Value(int key) {
    return &g_entries[key % 2];
}

void Insert(Map& map, std::initializer_list<int> keys) {
    for (const int key : keys) {
        EXPECT_TRUE(map.InsertUnlessMember(key, Value(key)));
    }
}

/// A subtree as "key/depth(left,right)", a leaf without the parentheses.
std::string Shape(const Map::Holder* slot) {
    if (slot == nullptr) {
        return "";
    }
    const Map::Node& node = slot->ConstGet();
    const std::string top = std::to_string(node.ConstGetKey()) + "/" + std::to_string(node.MaxDepth());
    const std::string children = Shape(node.m_left) + "," + Shape(node.m_right);
    return children == "," ? top : top + "(" + children + ")";
}

void CollectNodes(const Map::Holder* slot, std::set<const Map::Node*>& nodes) {
    if (slot != nullptr) {
        nodes.insert(slot->GetPtr());
        CollectNodes(slot->ConstGet().m_left, nodes);
        CollectNodes(slot->ConstGet().m_right, nodes);
    }
}

/// The nodes that `map` reaches and `other` does not.
std::size_t NodesOfItsOwn(const Map& map, const Map& other) {
    std::set<const Map::Node*> nodes;
    std::set<const Map::Node*> others;
    CollectNodes(map.m_root, nodes);
    CollectNodes(other.m_root, others);
    return static_cast<std::size_t>(
        std::count_if(nodes.begin(), nodes.end(), [&](const auto* node) { return !others.contains(node); }));
}

TEST(BtreeTest, InsertionsRotateWhenRecordedDepthsDifferByTwo) {
    Map map;
    Insert(map, {1, 2, 3});
    EXPECT_EQ(Shape(map.m_root), "1/2(,2/1(,3/0))");
    Insert(map, {4});
    EXPECT_EQ(Shape(map.m_root), "2/2(1/0,3/1(,4/0))");
    Insert(map, {5});
    EXPECT_EQ(Shape(map.m_root), "3/2(2/1(1/0,),4/1(,5/0))");
    Map mirrored;
    Insert(mirrored, {5, 4, 3, 2});
    EXPECT_EQ(Shape(mirrored.m_root), "4/2(3/1(2/0,),5/0)");
    Map zigzag;
    Insert(zigzag, {5, 1, 4, 3});
    EXPECT_EQ(Shape(zigzag.m_root), "1/3(,5/2(4/1(3/0,),))")
        << "a single rotation, even where it gains nothing";
}

TEST(BtreeTest, RemovalPutsTheSuccessorInPlaceAndKeepsTheDepthsInBetween) {
    const struct {
        std::initializer_list<int> keys;
        int removed;
        const char* shape;
    } cases[] = {
        {{1}, 1, ""},
        {{2, 1}, 2, "1/0"},
        {{2, 1, 3}, 2, "3/1(1/0,)"},
        {{2, 1, 3, 4}, 2, "3/1(1/0,4/0)"},
        {{4, 2, 6, 5, 7}, 4, "5/2(2/0,6/1(,7/0))"},
        {{4, 2, 8, 1, 6, 9, 5}, 4, "5/3(2/1(1/0,),8/2(6/0,9/0))"},
        {{4, 2, 6, 1, 7, 8}, 2, "6/2(4/1(1/0,),7/1(,8/0))"},
        {{3, 2, 4, 5}, 2, "3/2(,4/1(,5/0))"},
    };
    for (const auto& c : cases) {
        Map map;
        Insert(map, c.keys);
        EXPECT_TRUE(map.Remove(c.removed));
        EXPECT_EQ(Shape(map.m_root), c.shape);
        EXPECT_FALSE(map.Remove(c.removed));
        EXPECT_EQ(map.Size(), static_cast<int>(c.keys.size()) - 1);
    }
}

TEST(BtreeTest, CopyingAllocatesOneHolderAndAssigningOverARootNothing) {
    Map map;
    for (int key = 0; key < 1000; ++key) {
        Insert(map, {key});
    }
    int before = AllocationFaults::Allocations();
    Map copy(map);
    EXPECT_EQ(AllocationFaults::Allocations() - before, 1);
    Insert(copy, {5000});
    EXPECT_LE(NodesOfItsOwn(copy, map), static_cast<std::size_t>(map.Depth() + 3));

    before = AllocationFaults::Allocations();
    copy = map;
    EXPECT_EQ(AllocationFaults::Allocations(), before);
    EXPECT_EQ(NodesOfItsOwn(copy, map), 0U);
    const std::unique_ptr<Map> second(map.Copy());
    EXPECT_EQ(second->Size(), 1000);
    EXPECT_EQ(AllocationFaults::Allocations() - before, 2) << "the map itself and one holder";
}

TEST(BtreeTest, ChangesThatFindNothingToDoUnshareTheirPathAndConstLookupsDoNot) {
    Map map;
    Insert(map, {4, 2, 6, 1, 3, 5, 7});
    const auto ownAfter = [&map](auto change) {
        Map copy(map);
        change(copy);
        return NodesOfItsOwn(copy, map);
    };
    EXPECT_EQ(ownAfter([](Map& m) { EXPECT_FALSE(m.InsertUnlessMember(7, nullptr)); }), 3U);
    EXPECT_EQ(ownAfter([](Map& m) { EXPECT_FALSE(m.Remove(8)); }), 3U);
    EXPECT_EQ(ownAfter([](Map& m) { EXPECT_EQ(m.Get(0), nullptr); }), 3U);
    EXPECT_EQ(ownAfter([](Map& m) { EXPECT_EQ(m.Get(4), Value(4)); }), 1U);
    EXPECT_EQ(ownAfter([](Map& m) { EXPECT_EQ(m.ConstGet(1), Value(1)); }), 0U);
    EXPECT_EQ(ownAfter([](Map& m) { EXPECT_FALSE(m.IsMember(8)); }), 0U);
}

TEST(BtreeTest, AbsentKeysGiveTheNullValueWhichClearKeepsAndAssignmentTakesOver) {
    Map map;
    EXPECT_EQ(map.Get(1), nullptr);
    map.SetNullValue(Value(7));
    Insert(map, {1});
    map.Clear();
    EXPECT_TRUE(map.IsEmpty() && map.Depth() == 0 && map.m_root == nullptr);
    EXPECT_EQ(map.ConstGet(1), Value(7));
    Map other;
    Insert(other, {2});
    other = map;
    EXPECT_EQ(other.Get(2), Value(7));
    EXPECT_EQ(other.m_root, nullptr);
}

TEST(BtreeTest, IteratorIsDoneUntilPositionedAndPastEitherEnd) {
    Map map;
    cow_BtreeIterator<int, Entry*> iterator(map);
    iterator.First();
    EXPECT_TRUE(iterator.IsDone());
    Insert(map, {2, 1, 3});
    EXPECT_TRUE(iterator.IsDone());
    iterator.First();
    iterator.Next();
    EXPECT_EQ(iterator.CurrentKey(), 2);
    iterator.Previous();
    EXPECT_EQ(iterator.CurrentKey(), 1);
    iterator.Previous();
    EXPECT_TRUE(iterator.IsDone());
    iterator.Last();
    EXPECT_EQ(iterator.CurrentValue(), Value(3));
    iterator.Next();
    EXPECT_TRUE(iterator.IsDone());
}

TEST(BtreeTest, NaturalOrderSwitchIsReadAtEveryComparison) {
    const cow_String file9("file9");
    const cow_String file10("file10");
    EXPECT_EQ(NameMap::Compare(file10, file9), 1);
    EXPECT_EQ(NameMap::Compare("B", "a"), 1);
    EXPECT_EQ(NameMap::Compare("\xC3\xA4", "z"), -1);
    EXPECT_EQ(NameMap::Compare(cow_String(), ""), 0);
    EXPECT_EQ(NameMap::Compare("", "a"), 1);
    atr_setNaturalOrder(1);
    EXPECT_LT(NameMap::Compare(file10, file9), 0);
    EXPECT_GT(NameMap::Compare(file9, file10), 0);
    NameMap map;
    for (const cow_String& key : {file10, file9}) {
        map.InsertUnlessMember(key, nullptr);
    }
    EXPECT_STREQ(map.m_root->ConstGet().m_left->ConstGet().ConstGetKey().CStr(), "file9");
    atr_setNaturalOrder(0);
    EXPECT_EQ(Map::Compare(1, 2), 1);
    EXPECT_EQ(Map::Compare(2, 1), -1);
    EXPECT_EQ(Map::Compare(2, 2), 0);
}

/// Counts its objects.
struct Tracked {
    Tracked() { ++alive; }
    Tracked(const Tracked&) { ++alive; }
    ~Tracked() { --alive; }
    static inline int alive = 0;
};

TEST(HolderTest, ReferentLivesAsLongAsItsHoldersAndIsCopiedForWritingWhenShared) {
    {
        cow_COW<Tracked> first(new Tracked);
        cow_COW<Tracked> second(first);
        EXPECT_TRUE(first.Identical(second) && !first.Exclusive());
        EXPECT_NE(second.Get(), first.GetPtr());
        EXPECT_TRUE(first.Exclusive() && second.Exclusive());
        EXPECT_EQ(second.Get(), second.GetPtr()) << "an exclusive referent is not copied";
        second = first;
        const cow_COW<Tracked>& self = second;
        second = self;
        EXPECT_EQ(Tracked::alive, 1);
        second = new Tracked;
        EXPECT_TRUE(first.Exclusive() && second.Exclusive());
        second = new Tracked;
        EXPECT_EQ(Tracked::alive, 2);
        EXPECT_TRUE(cow_CountedHld<Tracked>().IsNull());
    }
    EXPECT_EQ(Tracked::alive, 0);
}

TEST(HolderTest, FailedAllocationFreesWhatWasGivenAndKeepsWhatWasHeld) {
    const int blocks = AllocationFaults::LiveBlocks();
    {
        AllocationFaults::FailAt(1);
        EXPECT_THROW(cow_COW<Tracked>(new Tracked), std::bad_alloc);
        EXPECT_EQ(Tracked::alive, 0);
        cow_COW<Tracked> first(new Tracked);
        cow_COW<Tracked> second(first);
        AllocationFaults::FailAt(1);
        EXPECT_THROW(second.Get(), std::bad_alloc);
        AllocationFaults::FailAt(1);
        EXPECT_THROW(second = new Tracked, std::bad_alloc);
        EXPECT_TRUE(first.Identical(second) && !first.Exclusive());
    }
    EXPECT_EQ(Tracked::alive, 0);
    EXPECT_EQ(AllocationFaults::LiveBlocks(), blocks);
}

TEST(AllocationFormsTest, EveryFormReturnsItsMemoryToTheAllocationLibrary) {
    struct Message : mem_AllocationOperators {
        virtual ~Message() = default;
    };
    const int blocks = AllocationFaults::LiveBlocks();
    const std::unique_ptr<Message> message(new Message);
    char* buffer = new (mem_BuiltInAlloc{}) char[sizeof(Tracked)];
    EXPECT_EQ(AllocationFaults::LiveBlocks() - blocks, 2);
    auto* placed = ::new (buffer, ZYLBasPlacement()) Tracked;
    EXPECT_EQ(static_cast<void*>(placed), buffer);
    placed->~Tracked();
    mem_deleteBuiltIn(buffer);
    EXPECT_EQ(AllocationFaults::LiveBlocks() - blocks, 1);
}

}  // namespace
