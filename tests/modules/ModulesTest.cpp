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

TEST(Modules, WorkOnTheFirstInitialisationAndTheLastFinalisationAndNeverClamp) {
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
        {ZYLMsgModules_finalize, 0},
        // Other entries share the counter, but not the tally.
        {[](int&) { ZYLMsgModules_initializeC(); }, 0},
        {attach, 0},
        {ZYLMsgModules_initialize, 0},
        {[](int&) { ZYLMsgModules_finalizeC(); }, 0},
        {detach, 0},
        {ZYLMsgModules_finalize, -kAll},
    };
    // Takes back the initialisation that loading the library did, so that the test is its only user.
    ASSERT_TRUE(Notify(kDetach));
    int tally = 0;
    for (const auto& step : steps) {
        step.change(tally);
        EXPECT_EQ(tally, step.tally);
    }
    EXPECT_TRUE(Notify(kAttach));
}

}  // namespace
