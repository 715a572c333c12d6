#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "ZYLBasMap.h"
#include "ZYLString.h"

namespace {

ZYLString Key(int number) {
    return ZYLString::BuildFromUTF8(std::to_string(number).c_str());
}

void ExpectSame(const ZYLBasMap<ZYLString, int>& map, const std::map<std::string, int>& model) {
    ASSERT_EQ(map.size(), model.size());
    auto expected = model.begin();
    for (const auto& entry : map) {
        ASSERT_EQ(entry.first, expected->first.c_str());
        ASSERT_EQ(entry.second, expected->second);
        ++expected;
    }
}

TEST(MapTest, RandomChangesMatchTheStandardMapAndLeaveCopiesAlone) {
    std::mt19937 random(7);
    ZYLBasMap<ZYLString, int> map;
    std::map<std::string, int> model;
    for (int step = 0; step < 2000; ++step) {
        const ZYLString key = Key(static_cast<int>(random() % 50));
        const ZYLBasMap<ZYLString, int> before = map;
        const std::map<std::string, int> modelBefore = model;
        switch (random() % 4) {
            case 0: {
                const auto [at, isNew] = map.insert(ZYLBasPair<ZYLString, int>(key, step));
                const auto [expected, expectedNew] = model.insert({key.GetUTF8(), step});
                ASSERT_EQ(isNew, expectedNew);
                ASSERT_EQ(at->second, expected->second);
                break;
            }
            case 1:
                map[key] += step;
                model[key.GetUTF8()] += step;
                break;
            case 2:
                ASSERT_EQ(map.erase(key), model.erase(key.GetUTF8()));
                break;
            default:
                ASSERT_EQ(map.find(key) == map.end(), !model.contains(key.GetUTF8()));
                break;
        }
        ExpectSame(map, model);
        ExpectSame(before, modelBefore);
    }
    const auto& self = map;
    map = self;
    ExpectSame(map, model);
}

}  // namespace
