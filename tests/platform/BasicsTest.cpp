// Copies, fatal errors and texts.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "QORFatalError.h"
#include "TemporaryDirectory.h"
#include "ZYLString.h"
#include "atr_NaturalOrder.h"
#include "mem_Copy.h"

namespace {

TEST(Copy, CopiesExactlyTheBytesAtEveryDistanceWithinThePage) {
    alignas(4096) static char source[4 * 4096];
    alignas(4096) static char target[4 * 4096];
    for (std::size_t index = 0; index < sizeof source; ++index) {
        source[index] = static_cast<char>(index * 31 + index / 251);
    }
    for (const std::size_t size : {0U, 1U, 2047U, 2048U, 2049U, 2111U, 2112U, 8191U}) {
        for (std::size_t ahead = 0; ahead <= 130; ++ahead) {
            std::memset(target, '?', sizeof target);
            mem_Copy(target + 1 + ahead, source + 65, size);
            const std::string expected =
                std::string(1 + ahead, '?') + std::string(source + 65, size) + std::string(64, '?');
            ASSERT_EQ(std::string(target, expected.size()), expected) << size << " at " << ahead;
        }
    }
}

TEST(FatalError, AbortsAfterOneLineAndFlushesEveryStreamEvenWhileAThreadReads) {
    const TemporaryDirectory directory;
    const std::string path = directory / "log";
    const auto end = [&path] {
        alarm(30);
        flockfile(stdin);  // as it is while another thread reads
        std::thread([&path] {
            std::fputs("logged before", std::fopen(path.c_str(), "w"));
            QORFatalError("no port", "of", nullptr, "7", "Dir.m/src/Source", -1);
        }).join();
    };
    EXPECT_EXIT(end(), testing::KilledBySignal(SIGABRT),
                "^Fatal error: no port of 7 \\(Dir.m/src/Source:-1\\)\n$");
    std::string logged;
    EXPECT_TRUE(std::getline(std::ifstream(path), logged));
    EXPECT_EQ(logged, "logged before");
}

ZYLString Text(const char* text) {
    return ZYLString::BuildFromUTF8(text);
}

TEST(String, CountsCharactersAlsoOfMalformedTextAndSharesUntilACopyIsChanged) {
    const std::pair<const char*, int> cases[] = {
        {"\xC3\xA4z", 2}, {"\xE2\x82\xAC", 1}, {"\xF0\x9F\x98\x80", 1},     {"\xE2\x82", 2},
        {"\xE2\x82z", 3}, {"\x80\x80", 2},     {"\xF8\x80\x80\x80\x80", 5},
    };
    for (const auto& [text, characters] : cases) {
        EXPECT_EQ(Text(text).GetLengthInChar(), characters) << testing::PrintToString(std::string(text));
    }
    ZYLString original = Text("job\xC3\xA4");
    ZYLString copy = original;
    EXPECT_EQ(copy.GetUTF8(), original.GetUTF8());
    copy.ASCIIToUpper();
    original.Append(original);
    EXPECT_EQ(copy, "JOB\xC3\xA4");
    EXPECT_EQ(original, "job\xC3\xA4job\xC3\xA4");
    copy.AssignUTF8(copy.GetUTF8() + 1, 1);
    EXPECT_EQ(copy, "O");
    EXPECT_TRUE(ZYLString() < copy && copy < Text("\xC3\xA4"));
}

TEST(NaturalOrder, EveryPairOfAnAscendingListComparesByItsPlaces) {
    const std::string manyNines(400, '9');
    // clang-format off
    const std::vector<std::string> ascending = {
        "", "!", "0", "00", "1", "01", "001", "1a", "1a2", "01a2", "1b", "2", "9", "10", "010",
        "18446744073709551616", "18446744073709551617", manyNines, "1" + manyNines,
        "B", "a", "a1", "a1b1", "a1b01", "a01b1", "a1b2", "a02", "a10", "file9", "file10", "z", "\xC3\xA4"};
    // clang-format on
    for (std::size_t i = 0; i < ascending.size(); ++i) {
        for (std::size_t j = 0; j < ascending.size(); ++j) {
            EXPECT_EQ(strnatcmp(ascending[i].c_str(), ascending[j].c_str()), (i > j) - (i < j))
                << ascending[i] << " against " << ascending[j];
        }
    }
}

}  // namespace
