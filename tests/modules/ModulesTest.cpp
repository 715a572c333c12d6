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
    int count = 0;
    const struct {
        void (*change)(int&);
        int tally;
    } steps[] = {
        {ZYLMsgModules_initialize, kAll}, {ZYLMsgModules_initialize, kAll}, {ZYLMsgModules_finalize, kAll},
        {ZYLMsgModules_finalize, 0},      {ZYLMsgModules_finalize, 0},  // to -1
        {ZYLMsgModules_initialize, 0},    {ZYLMsgModules_initialize, kAll}, {ZYLFeaBackbone_initialize, kAll},
        {ZYLFeaBackbone_finalize, kAll},  {ZYLMsgModules_finalize, 0}};
    for (const auto& [change, tally] : steps) {
        change(count);
        EXPECT_EQ(count, tally);
    }
}

TEST_F(Modules, CountEachOnItsOwn) {
    const struct {
        const char* name;
        void (*initialize)(int&);
        void (*finalize)(int&);
    } modules[] = {
        {"pool manager", ZYLSimPoolManager_initialize, ZYLSimPoolManager_finalize},
        {"containers", ZYLSimContainers_initialize, ZYLSimContainers_finalize},
        {"XML document", ZYLBasXmlDocument_initialize, ZYLBasXmlDocument_finalize},
        {"XML parser", ZYLBasXmlParser_initialize, ZYLBasXmlParser_finalize},
        {"shared", ZYLBasShared_initialize, ZYLBasShared_finalize},
        {"core utilities", ZYLBasCoreUtils_initialize, ZYLBasCoreUtils_finalize},
        {"generics", ZYLBasGenericsLib_initialize, ZYLBasGenericsLib_finalize},
        {"allocator", ZYLBasAlloc_initialize, ZYLBasAlloc_finalize},
        {"backbone", ZYLMsgBackbone_initialize, ZYLMsgBackbone_finalize},
        {"types", ZYLMsgTypes_initialize, ZYLMsgTypes_finalize},
        {"utilities", ZYLMsgUtils_initialize, ZYLMsgUtils_finalize},
        {"handlers", ZYLMsgHandlers_initialize, ZYLMsgHandlers_finalize},
        {"specific", ZYLMsgModules_specific_initialize, ZYLMsgModules_specific_finalize},
    };
    for (const auto& module : modules) {
        SCOPED_TRACE(module.name);
        int other = 0;
        int library = 0;
        module.initialize(other);
        EXPECT_EQ(other, 1);
        ZYLMsgModules_initialize(library);
        EXPECT_EQ(library, kAll - 1) << "the module was in use before";
        module.finalize(other);
        EXPECT_EQ(other, 1) << "the library still uses the module";
        ZYLMsgModules_finalize(library);
        EXPECT_EQ(library, -1);
    }
}

TEST_F(Modules, ShareTheirCounterAmongAllEntryPathsButNotTheTallies) {
    int count = 0;
    ZYLMsgModules_initializeC();
    ASSERT_TRUE(Notify(kAttach));
    EXPECT_TRUE(Notify(kThreadAttach) && Notify(kThreadAttach) && Notify(kThreadDetach));
    ZYLMsgModules_initialize(count);
    EXPECT_EQ(count, 0);
    ZYLMsgModules_finalizeC();
    ASSERT_TRUE(Notify(kDetach));
    ZYLMsgModules_finalize(count);
    EXPECT_EQ(count, -kAll) << "the tally of C took what this one gives back";
}

}  // namespace
