// Memory, fatal errors, texts and maps.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "QORFatalError.h"
#include "TemporaryDirectory.h"
#include "ZYLBasMap.h"
#include "ZYLString.h"
#include "atr_NaturalOrder.h"
#include "mem_Allocation.h"
#include "mem_Copy.h"

namespace {

TEST(Allocation, EverySizeGivesAWritableBlockOnAPageIfLargeOrRaisesBadAlloc) {
    for (const auto allocate :
         {mem_OperatorNewThrow, mem_OperatorNewTinyThrow, mem_OperatorNewThrowBuiltin}) {
        for (const std::size_t size : {0U, 1U, 65535U, 65536U, 1U << 20U}) {
            void* const block = allocate(size);
            ASSERT_NE(block, nullptr) << size;
            std::memset(block, 0xA5, size);
            const std::size_t alignment = size >= 65536 ? 4096 : alignof(std::max_align_t);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignment, 0U) << size;
            mem_Free(block);
        }
        EXPECT_THROW(allocate(SIZE_MAX), std::bad_alloc);
    }
}

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
    EXPECT_EXIT(
        {
            int silent[2];
            ASSERT_EQ(pipe(silent), 0);
            dup2(silent[0], STDIN_FILENO);
            alarm(30);
            std::thread([] { std::getchar(); }).detach();
            while (ftrylockfile(stdin) == 0) {
                funlockfile(stdin);
            }
            std::fputs("logged before", std::fopen(path.c_str(), "w"));
            QORFatalError("no port", "of", nullptr, "7", "Dir.m/src/Source", -1);
        },
        testing::KilledBySignal(SIGABRT), "^Fatal error: no port of 7 \\(Dir.m/src/Source:-1\\)\n$");
    std::string logged;
    EXPECT_TRUE(std::getline(std::ifstream(path), logged));
    EXPECT_EQ(logged, "logged before");
}

ZYLString Text(const char* text) {
    return ZYLString::BuildFromUTF8(text);
}

TEST(String, LengthsCountBytesAndCharactersAlsoOfMalformedText) {
    const struct {
        const char* text;
        int characters;
    } cases[] = {
        {"", 0},         {"abc", 3},       {"\xC3\xA4z", 2}, {"\xE2\x82\xAC", 1}, {"\xF0\x9F\x98\x80", 1},
        {"\xE2\x82", 2}, {"\xE2\x82z", 3}, {"\x80\x80", 2},  {"\xFF\xC3\xA4", 2}, {"\xF8\x80\x80\x80\x80", 5},
    };
    for (const auto& [text, characters] : cases) {
        EXPECT_EQ(Text(text).GetLengthInByte(), static_cast<int>(std::strlen(text)));
        EXPECT_EQ(Text(text).GetLengthInChar(), characters) << testing::PrintToString(std::string(text));
    }
}

TEST(String, CopySharesTheTextUntilOneIsChangedAndMayTakeItsOwn) {
    ZYLString original = Text("job\xC3\xA4");
    ZYLString copy = original;
    EXPECT_EQ(copy.GetUTF8(), original.GetUTF8());
    copy.ASCIIToUpper();
    original.Append(original);
    EXPECT_EQ(copy, "JOB\xC3\xA4");
    std::string buffer(12, '?');
    std::size_t length = 0;
    original.ConvertToUTF8(buffer.data(), &length);
    EXPECT_EQ(buffer, std::string("job\xC3\xA4job\xC3\xA4\0?", 12));
    EXPECT_EQ(length, 10U);
    copy.AssignUTF8("ab\0cd", 5);
    EXPECT_EQ(copy, Text("ab"));
    copy.AssignUTF8(copy.GetUTF8() + 1, 1);
    EXPECT_EQ(copy, "b");
    copy.AssignUTF8(nullptr, 0);
    EXPECT_TRUE(copy.IsEmpty() && copy == Text(nullptr));
}

TEST(String, OrdersByUnsignedBytesOnEitherSide) {
    const ZYLString ab = Text("ab");
    EXPECT_TRUE(ab == "ab" && "ab" == ab && ab != "aB" && "abc" != ab && ab != Text("abc"));
    EXPECT_TRUE(ab < "abc" && "B" < ab && ab < Text("\xC3\xA4") && ZYLString() < ab);
    EXPECT_FALSE(ab < "ab" || "ab" < ab || ab < ZYLString());
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

TEST(Map, RandomChangesMatchTheStandardMapAndLeaveCopiesAlone) {
    using Model = std::map<std::string, int>;
    const auto contentOf = [](const ZYLBasMap<ZYLString, int>& map) {
        Model content;
        for (const auto& entry : map) {
            content.emplace_hint(content.end(), entry.first.GetUTF8(), entry.second);
        }
        EXPECT_EQ(content.size(), map.size());
        return content;
    };
    std::mt19937 random(7);
    ZYLBasMap<ZYLString, int> map;
    Model model;
    for (int step = 0; step < 2000; ++step) {
        const std::string name = std::to_string(random() % 50);
        const ZYLString key = Text(name.c_str());
        const auto before = map;
        const Model modelBefore = model;
        switch (random() % 3) {
            case 0:
                ASSERT_EQ(map.insert(ZYLBasPair<ZYLString, int>(key, step)).second,
                          model.insert({name, step}).second);
                break;
            case 1:
                map[key] += step;
                model[name] += step;
                break;
            default:
                ASSERT_EQ(map.find(key) != map.end(), model.contains(name));
                ASSERT_EQ(map.erase(key), model.erase(name));
                break;
        }
        const auto& self = map;
        map = self;
        ASSERT_EQ(contentOf(map), model);
        ASSERT_EQ(contentOf(before), modelBefore);
    }
}

}  // namespace
