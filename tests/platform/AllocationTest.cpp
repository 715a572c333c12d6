#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include "mem_Allocation.h"
#include "mem_Copy.h"

namespace {

using Allocate = void* (*)(std::size_t);

class AllocationTest : public testing::TestWithParam<Allocate> {};

TEST_P(AllocationTest, EverySizeGivesAWritableBlockOnAPageIfLargeOrRaisesBadAlloc) {
    for (const std::size_t size : {0U, 1U, 16U, 65535U, 65536U, 65537U, 1U << 20U}) {
        void* block = GetParam()(size);
        ASSERT_NE(block, nullptr) << size;
        std::memset(block, 0xA5, size);
        const std::size_t alignment = size >= 65536 ? 4096 : alignof(std::max_align_t);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignment, 0U) << size;
        mem_Free(block);
    }
    mem_Free(nullptr);
    EXPECT_THROW(GetParam()(SIZE_MAX), std::bad_alloc);
}

INSTANTIATE_TEST_SUITE_P(EveryForm, AllocationTest,
                         testing::Values(mem_OperatorNewThrow, mem_OperatorNewTinyThrow,
                                         mem_OperatorNewThrowBuiltin));

TEST(CopyTest, CopiesExactlyTheBytesAtEveryDistanceWithinThePage) {
    constexpr std::size_t kPage = 4096;
    alignas(kPage) static char source[4 * kPage];
    alignas(kPage) static char target[4 * kPage];
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
    mem_Copy(nullptr, nullptr, 0);
}

}  // namespace
