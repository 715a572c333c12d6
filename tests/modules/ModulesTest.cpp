#include <gtest/gtest.h>

#include "ZYLModuleInitializers.h"
#include "ZYLMsgModules.h"

extern "C" int DllMain(void* module, unsigned reason, void* reserved);

namespace {

/// The library itself, the eight libraries it depends on, its four modules and the specific step.
constexpr int kAll = 1 + 8 + 4 + 1;

enum Reason : unsigned { kDetach, kAttach, kThreadAttach, kThreadDetach };

bool Notify(Reason reason) {
    return DllMain(nullptr, reason, nullptr) != 0;
}

/// Takes back the initialisation that loading the library did, so that the test is its only user.
class Modules : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(Notify(kDetach)); }
    void TearDown() override { ASSERT_TRUE(Notify(kAttach)); }
};

TEST_F(Modules, WorkOnTheFirstInitialisationAndTheLastFinalisationAndNeverClamp) {
    const auto attach = [](int&) { EXPECT_TRUE(Notify(kAttach) && Notify(kThreadAttach)); };
    const auto detach = [](int&) { EXPECT_TRUE(Notify(kDetach) && Notify(kThreadDetach)); };
    const struct {
        void (*change)(int&);
        int tally;
    } steps[] = {
        {ZYLMsgModules_initialize, kAll},
        {ZYLMsgModules_initialize, kAll},
        {ZYLMsgModules_finalize, kAll},
        {ZYLMsgModules_finalize, 0},
        {ZYLMsgModules_finalize, 0},  // to -1
        {ZYLMsgModules_initialize, 0},
        {ZYLMsgModules_initialize, kAll},
        {ZYLFeaBackbone_initialize, kAll},
        {ZYLFeaBackbone_finalize, kAll},
        {ZYLMsgModules_finalize, 0},
        // Other entries share the counter, but not the tally.
        {[](int&) { ZYLMsgModules_initializeC(); }, 0},
        {attach, 0},
        {ZYLMsgModules_initialize, 0},
        {[](int&) { ZYLMsgModules_finalizeC(); }, 0},
        {detach, 0},
        {ZYLMsgModules_finalize, -kAll},
    };
    int tally = 0;
    for (const auto& step : steps) {
        step.change(tally);
        EXPECT_EQ(tally, step.tally);
    }
}

TEST_F(Modules, CountEachOnItsOwn) {
    const std::pair<void (*)(int&), void (*)(int&)> modules[] = {
        {ZYLSimPoolManager_initialize, ZYLSimPoolManager_finalize},
        {ZYLSimContainers_initialize, ZYLSimContainers_finalize},
        {ZYLBasXmlDocument_initialize, ZYLBasXmlDocument_finalize},
        {ZYLBasXmlParser_initialize, ZYLBasXmlParser_finalize},
        {ZYLBasShared_initialize, ZYLBasShared_finalize},
        {ZYLBasCoreUtils_initialize, ZYLBasCoreUtils_finalize},
        {ZYLBasGenericsLib_initialize, ZYLBasGenericsLib_finalize},
        {ZYLBasAlloc_initialize, ZYLBasAlloc_finalize},
        {ZYLMsgBackbone_initialize, ZYLMsgBackbone_finalize},
        {ZYLMsgTypes_initialize, ZYLMsgTypes_finalize},
        {ZYLMsgUtils_initialize, ZYLMsgUtils_finalize},
        {ZYLMsgHandlers_initialize, ZYLMsgHandlers_finalize},
        {ZYLMsgModules_specific_initialize, ZYLMsgModules_specific_finalize},
    };
    for (const auto& [initialize, finalize] : modules) {
        int other = 0, library = 0;
        initialize(other);
        EXPECT_EQ(other, 1);
        ZYLMsgModules_initialize(library);
        EXPECT_EQ(library, kAll - 1) << "the module was in use before";
        finalize(other);
        EXPECT_EQ(other, 1) << "the library still uses the module";
        ZYLMsgModules_finalize(library);
        EXPECT_EQ(library, -1);
    }
}

}  // namespace
