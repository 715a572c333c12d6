#include <gtest/gtest.h>

#include <memory>
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
        Map map;
        Insert(map, c.keys);
        EXPECT_EQ(map.Remove(c.removed), c.removed != 0);
        EXPECT_EQ(Shape(map.m_root), c.shape);
    }
}

TEST(BtreeTest, CopiesAndLookupsAllocateNoMoreThanThePathThatTheyUnshare) {
    Map map;
    Insert(map, {4, 2, 6, 1, 3, 5, 7});
    const auto allocations = [](auto change) {
        const int before = AllocationFaults::Allocations();
        change();
        return AllocationFaults::Allocations() - before;
    };
    std::unique_ptr<Map> copy;
    EXPECT_EQ(allocations([&] { copy.reset(map.Copy()); }), 2) << "the map itself and one holder";
    EXPECT_EQ(allocations([&] { *copy = map; }), 0);
    EXPECT_EQ(allocations([&] { EXPECT_EQ(copy->ConstGet(1), Value(1)); }), 0);
    EXPECT_EQ(allocations([&] { EXPECT_FALSE(copy->IsMember(8)); }), 0);
    // A node that is unshared is copied, with a counter and holders for its children.
    EXPECT_EQ(allocations([&] { EXPECT_EQ(copy->Get(4), Value(4)); }), 4);
    EXPECT_EQ(allocations([&] { EXPECT_FALSE(copy->Remove(8)); }), 6);
    EXPECT_EQ(allocations([&] { EXPECT_FALSE(copy->InsertUnlessMember(7, nullptr)); }), 0);
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

TEST(BtreeTest, NaturalOrderSwitchIsReadAtEveryComparison) {
    const cow_String file9("file9"), file10("file10");
    EXPECT_EQ(NameMap::Compare(file10, file9), 1);
    EXPECT_EQ(NameMap::Compare("\xC3\xA4", "z"), -1);
    EXPECT_EQ(NameMap::Compare(cow_String(), ""), 0);
    atr_setNaturalOrder(1);
    EXPECT_LT(NameMap::Compare(file10, file9), 0);
    atr_setNaturalOrder(0);
    EXPECT_EQ(Map::Compare(1, 2), 1);
    EXPECT_EQ(Map::Compare(2, 1), -1);
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
