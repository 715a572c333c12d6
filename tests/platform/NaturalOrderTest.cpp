#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "atr_NaturalOrder.h"

namespace {

TEST(NaturalOrderTest, EveryPairOfAnAscendingListComparesByItsPlaces) {
    const std::string manyNines(400, '9');
    // clang-format off
    const std::vector<std::string> ascending = {
        "", "!", "0", "00", "1", "01", "001", "1a", "1a2", "01a2", "1b", "2", "9", "10", "010",
        "18446744073709551616", "18446744073709551617", manyNines, "1" + manyNines,
        "B", "a", "a1", "a1b1", "a1b01", "a01b1", "a1b2", "a02", "a10", "file9", "file10", "z", "\xC3\xA4"};
    // clang-format on
    for (std::size_t i = 0; i < ascending.size(); ++i) {
        for (std::size_t j = 0; j < ascending.size(); ++j) {
            const int expected = i < j ? -1 : (i > j ? 1 : 0);
            EXPECT_EQ(strnatcmp(ascending[i].c_str(), ascending[j].c_str()), expected)
                << ascending[i] << " against " << ascending[j];
        }
    }
}

}  // namespace
