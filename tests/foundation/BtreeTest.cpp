#include <gtest/gtest.h>

#include <array>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>

#include "AllocationFaults.h"
#include "atr_NaturalOrder.h"
#include "cow_Btree.h"
#include "cow_BtreeIterator.h"

namespace {

int g_entries[1000];

using Value = int*;
using Map = cow_Btree<cow_String, Value>;
using Iterator = cow_BtreeIterator<cow_String, Value>;
using Model = std::map<std::string, Value>;

struct Version {
    std::unique_ptr<Map> map = std::make_unique<Map>();
    Model model;  ///< what the map holds; nothing is shared with it
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
        ASSERT_EQ(map.Size(), static_cast<int>(model.size()));
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
        }
        AllocationFaults::FailAt(0);
        for (const Version& other : m_versions) {
            ExpectWalk(*other.map, other.model);
        }
    }
    EXPECT_GT(failures, 300);
    for (Version& version : m_versions) {
        version.map.reset();
    }
    EXPECT_EQ(AllocationFaults::LiveBlocks(), m_blocks);
}

TEST(BtreeTest, RotationsKeepItFlatAlsoWhereAKeyIsRemoved) {
    const struct {
        std::initializer_list<int> keys;
        int removed;  // 0 for none
        int depth;
    } cases[] = {
        {{1, 2, 3}, 0, 2},
        {{1, 2, 3, 4, 5}, 0, 2},
        {{5, 4, 3, 2}, 0, 2},
        {{5, 1, 4, 3}, 0, 3},  // a rotation that gains nothing
        {{2, 1, 3, 4}, 2, 1},
        {{4, 2, 6, 1, 7, 8}, 2, 2},
        {{20, 4, 30, 2, 6, 25, 35, 1, 7, 40, 9}, 1, 3},  // a rotation below the root
        {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, 0, 4},
    };
    for (const auto& [keys, removed, depth] : cases) {
        cow_Btree<int, int*> map;
        map.SetNullValue(g_entries + 1);
        for (const int key : keys) {
            EXPECT_TRUE(map.InsertUnlessMember(key, g_entries));
        }
        EXPECT_EQ(map.Remove(removed), removed != 0);
        EXPECT_EQ(map.Depth(), depth) << keys.size() << " keys without " << removed;
        EXPECT_EQ(map.Get(removed), g_entries + 1);
    }
}

TEST(BtreeTest, NamesCompareByUnsignedBytesOrWhileTheSwitchIsSetInNaturalOrder) {
    const cow_String file9("file9"), file10("file10"), noText;
    EXPECT_EQ(BtreeCompare(file10, file9), 1);
    EXPECT_EQ(BtreeCompare("\xC3\xA4", "z"), -1);
    EXPECT_EQ(BtreeCompare(noText, ""), 0);
    atr_setNaturalOrder(1);
    EXPECT_LT(BtreeCompare(file10, file9), 0);
    atr_setNaturalOrder(0);
}

}  // namespace
