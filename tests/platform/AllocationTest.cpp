#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <new>

#include "mem_Allocation.h"

namespace {

using Allocate = void* (*)(std::size_t);

class AllocationTest : public testing::TestWithParam<Allocate> {};

TEST_P(AllocationTest, EverySizeGivesAWritableBlockAndLargeOnesBeginOnAPage) {
    for (const std::size_t size : {0U, 1U, 16U, 65535U, 65536U, 65537U, 1U << 20U}) {
        void* block = GetParam()(size);
        ASSERT_NE(block, nullptr) << size;
        std::memset(block, 0xA5, size);
        const std::size_t alignment = size >= 65536 ? 4096 : alignof(std::max_align_t);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignment, 0U) << size;
        mem_Free(block);
    }
    mem_Free(nullptr);
}

TEST_P(AllocationTest, ImpossibleSizeRaisesBadAlloc) {
    EXPECT_THROW(GetParam()(SIZE_MAX), std::bad_alloc);
}

INSTANTIATE_TEST_SUITE_P(EveryForm, AllocationTest,
                         testing::Values(mem_OperatorNewThrow, mem_OperatorNewTinyThrow,
                                         mem_OperatorNewThrowBuiltin));

}  // namespace
