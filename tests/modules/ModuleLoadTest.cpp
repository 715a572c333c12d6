// What happens while the library is loaded and unloaded, seen from the libraries that it then initialises and
// finalises: this program takes their place.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ZYLModuleInitializers.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgStringType.h"

namespace {

/// The names of the initialised libraries; written before the objects of this program are constructed.
constinit char initialised[256] = "";

class Handler : public ZYLMsgBBMessageHandler {
  public:
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        std::fprintf(stderr, "%s from %s;", message.Type(), id);
    }
};

/// Registers a type while the library is being loaded.
void Initialised(const char* name) {
    if (initialised[0] == '\0') {
        ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType, new Handler);
    }
    std::strncat(initialised, name, sizeof initialised - std::strlen(initialised) - 1);
}

/// Prints, since the test must see what happens after its own end. The last library finds the registries.
void Finalised(const char* name) {
    std::fputs(name, stderr);
    if (std::strcmp(name, "pool ") == 0) {
        ZYLMsgBBCallbackManager emptiesTheRegistries;
        ZYLMsgBBCallbackManager::HandleMessage("ZYLMsgStringType", "\2\0\0\0mex", 7);
    }
}

}  // namespace

#define STAND_IN(library, name)                 \
    void library##_initialize(int& /*count*/) { \
        Initialised(name);                      \
    }                                           \
    void library##_finalize(int& /*count*/) {   \
        Finalised(name);                        \
    }
STAND_IN(ZYLSimPoolManager, "pool ")
STAND_IN(ZYLSimContainers, "containers ")
STAND_IN(ZYLBasXmlDocument, "document ")
STAND_IN(ZYLBasXmlParser, "parser ")
STAND_IN(ZYLBasShared, "shared ")
STAND_IN(ZYLBasCoreUtils, "core ")
STAND_IN(ZYLBasGenericsLib, "generics ")
STAND_IN(ZYLBasAlloc, "alloc ")

namespace {

TEST(ModuleLoad, InitialisesInOrderAndFinalisesInReverseBeforeTheStaticObjectsGo) {
    EXPECT_STREQ(initialised, "pool containers document parser shared core generics alloc ");
    // Registered while the library was loaded: registries constructed after that would be empty again.
    EXPECT_TRUE(ZYLMsgBBCallbackManager::IsMessageTypeHandled("ZYLMsgStringType"));
    EXPECT_EXIT(std::exit(0), testing::ExitedWithCode(0),
                "alloc generics core shared parser document containers pool ZYLMsgStringType from me;");
}

}  // namespace
