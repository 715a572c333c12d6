#include <gtest/gtest.h>

#include <array>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>

#include "AllocationFaults.h"
#include "BtreeChecker.h"
#include "cow_Btree.h"
#include "cow_BtreeIterator.h"

namespace {

struct Entry {};
Entry g_entries[1000];

using Value = Entry*;

/// The key of a map and of the std::map it is compared with.
struct IntKeys {
    using Key = int;
    using ModelKey = int;
    static int Make(int number) { return number; }
    static int ModelOf(int key) { return key; }
};
struct NameKeys {
    using Key = cow_String;
    using ModelKey = std::string;
    static cow_String Make(int number) { return std::to_string(number).c_str(); }
    static std::string ModelOf(const cow_String& key) { return key.CStr(); }
};

/// Several maps that are copied from one another and changed at random, each beside a std::map that nothing
/// is shared with.
template <class Keys>
class BtreeScriptTest : public testing::Test {
  protected:
    using Key = typename Keys::Key;
    using Map = cow_Btree<Key, Value>;
    using Model = std::map<typename Keys::ModelKey, Value>;

    struct Version {
        std::unique_ptr<Map> map = std::make_unique<Map>();
        Model model;
        Depths depths = Depths::kExact;
    };

    int Random(int below) { return static_cast<int>(m_random() % static_cast<unsigned>(below)); }
    Version& AnyVersion() {
        return m_versions[static_cast<std::size_t>(Random(static_cast<int>(m_versions.size())))];
    }

    /// One random change of `version`, whose model then says what is to be expected. `failAt` makes an
    /// allocation of the map's change fail.
    void Change(Version& version, int failAt) {
        const Key key = Keys::Make(Random(40));
        const auto modelKey = Keys::ModelOf(key);
        Entry* value = &g_entries[Random(1000)];
        const Version& source = AnyVersion();
        Model& model = version.model;
        Map& map = *version.map;
        const auto armed = [failAt](auto change) -> decltype(auto) {
            AllocationFaults::FailAt(failAt);
            return change();
        };
        switch (Random(16)) {
            case 0:
                model = Model(source.model);
                version.depths = source.depths;
                armed([&] { map = *source.map; });
                break;
            case 1:
                model = Model(source.model);
                version.depths = source.depths;
                version.map.reset(armed([&] { return source.map->Copy(); }));
                break;
            case 2:
                if (Random(8) == 0) {
                    model.clear();
                    map.Clear();
                }
                break;
            case 3: {
                const auto at = model.find(modelKey);
                Value& found = armed([&]() -> Value& { return map.Get(key); });
                ASSERT_EQ(found, at != model.end() ? at->second : nullptr);
                if (at != model.end()) {
                    at->second = found = value;
                }
                break;
            }
            case 4:
            case 5:
            case 6:
            case 7:
            case 8: {
                const bool wasThere = model.erase(modelKey) > 0;
                version.depths = std::max(version.depths, Depths::kNotTooSmall);
                ASSERT_EQ(armed([&] { return map.Remove(key); }), wasThere);
                break;
            }
            default: {
                const bool isNew = model.insert({modelKey, value}).second;
                ASSERT_EQ(armed([&] { return map.InsertUnlessMember(key, value); }), isNew);
                break;
            }
        }
    }

    static Model ContentOf(const Map& map) {
        Model content;
        cow_BtreeIterator<Key, Value> iterator(map);
        for (iterator.First(); !iterator.IsDone(); iterator.Next()) {
            content.emplace_hint(content.end(), Keys::ModelOf(iterator.CurrentKey()),
                                 iterator.CurrentValue());
        }
        return content;
    }

    /// Walks to and fro, from one end to beyond either.
    void ExpectWalk(const Map& map, const Model& model) {
        cow_BtreeIterator<Key, Value> iterator(map);
        EXPECT_TRUE(iterator.IsDone());
        const bool fromTheFront = Random(2) == 0;
        auto expected = fromTheFront || model.empty() ? model.begin() : std::prev(model.end());
        fromTheFront ? iterator.First() : iterator.Last();
        while (expected != model.end()) {
            ASSERT_FALSE(iterator.IsDone());
            ASSERT_EQ(Keys::ModelOf(iterator.CurrentKey()), expected->first);
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
        BtreeChecker<Key, Value> checker;
        for (const Version& version : m_versions) {
            ASSERT_EQ(ContentOf(*version.map), version.model);
            ExpectWalk(*version.map, version.model);
            checker.Add(*version.map, version.depths);
        }
        checker.CheckCounts();
    }

    std::mt19937 m_random{20};
    std::array<Version, 4> m_versions;
};

using KeyKinds = testing::Types<IntKeys, NameKeys>;
TYPED_TEST_SUITE(BtreeScriptTest, KeyKinds);

TYPED_TEST(BtreeScriptTest, RandomChangesMatchTheStandardMapOnEveryVersion) {
    for (int step = 0; step < 2000 && !this->HasFailure(); ++step) {
        this->Change(this->AnyVersion(), 0);
        this->CheckEverything();
    }
}

TYPED_TEST(BtreeScriptTest, FailedAllocationLeavesTheOtherVersionsAndLosesNothing) {
    const int blocks = AllocationFaults::LiveBlocks();
    int failures = 0;
    for (int step = 0; step < 3000 && !this->HasFailure(); ++step) {
        auto& version = this->AnyVersion();
        const auto before = version.model;
        try {
            this->Change(version, 1 + this->Random(12));
        } catch (const std::bad_alloc&) {
            ++failures;
            const auto content = this->ContentOf(*version.map);
            ASSERT_TRUE(content == before || content == version.model);
            version.model = content;
            version.depths = Depths::kAny;
        }
        AllocationFaults::FailAt(0);
        this->CheckEverything();
    }
    EXPECT_GT(failures, 300);
    for (auto& version : this->m_versions) {
        version.map.reset();
    }
    EXPECT_EQ(AllocationFaults::LiveBlocks(), blocks - 4)
        << "the four maps that were there at the start are gone too";
}

}  // namespace
