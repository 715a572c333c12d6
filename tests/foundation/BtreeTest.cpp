#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "AllocationFaults.h"
#include "atr_NaturalOrder.h"
#include "cow_Btree.h"
#include "cow_String.h"

namespace {

int g_entry = 0;

using Map = cow_Btree<int, int*>;

void Insert(Map& map, std::initializer_list<int> keys) {
    for (const int key : keys) {
        EXPECT_TRUE(map.InsertUnlessMember(key, &g_entry));
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
    EXPECT_EQ(allocations([&] { EXPECT_EQ(copy->ConstGet(1), &g_entry); }), 0);
    // A node that is unshared is copied, with a counter and holders for its children.
    EXPECT_EQ(allocations([&] { EXPECT_EQ(copy->Get(4), &g_entry); }), 4);
    EXPECT_EQ(allocations([&] { EXPECT_FALSE(copy->Remove(8)); }), 6);
}

TEST(BtreeTest, AbsentKeysGiveTheNullValueWhichAssignmentTakesOver) {
    Map map, other;
    EXPECT_EQ(map.Get(1), nullptr);
    map.SetNullValue(&g_entry);
    other = map;
    EXPECT_EQ(other.Get(1), &g_entry);
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
