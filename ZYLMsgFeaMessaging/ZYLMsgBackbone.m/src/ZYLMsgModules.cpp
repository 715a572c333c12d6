#include "ZYLMsgModules.h"

#include <iterator>

#include "ZYLModuleCounter.h"
#include "ZYLModuleInitializers.h"

namespace {

constinit ZYLModuleCounter library;
constinit ZYLModuleCounter specific;
constinit ZYLModuleCounter backbone;
constinit ZYLModuleCounter types;
constinit ZYLModuleCounter utils;
constinit ZYLModuleCounter handlers;

constinit int tallyOfC = 0;
constinit int tallyOfLoad = 0;

struct Module {
    void (*initialize)(int& count);
    void (*finalize)(int& count);
};

/// The modules in the order of their initialisation; finalisation goes in the reverse order.
const Module kModules[] = {
    {&ZYLSimPoolManager_initialize, &ZYLSimPoolManager_finalize},
    {&ZYLSimContainers_initialize, &ZYLSimContainers_finalize},
    {&ZYLBasXmlDocument_initialize, &ZYLBasXmlDocument_finalize},
    {&ZYLBasXmlParser_initialize, &ZYLBasXmlParser_finalize},
    {&ZYLBasShared_initialize, &ZYLBasShared_finalize},
    {&ZYLBasCoreUtils_initialize, &ZYLBasCoreUtils_finalize},
    {&ZYLBasGenericsLib_initialize, &ZYLBasGenericsLib_finalize},
    {&ZYLBasAlloc_initialize, &ZYLBasAlloc_finalize},
    {&ZYLMsgBackbone_initialize, &ZYLMsgBackbone_finalize},
    {&ZYLMsgTypes_initialize, &ZYLMsgTypes_finalize},
    {&ZYLMsgUtils_initialize, &ZYLMsgUtils_finalize},
    {&ZYLMsgHandlers_initialize, &ZYLMsgHandlers_finalize},
    {&ZYLMsgModules_specific_initialize, &ZYLMsgModules_specific_finalize},
};

/// The reasons of the system's loader that matter here; it also reports threads.
constexpr unsigned kProcessDetach = 0;
constexpr unsigned kProcessAttach = 1;

int OnLoaderNotification(unsigned reason) {
    if (reason == kProcessAttach) {
        ZYLMsgModules_initialize(tallyOfLoad);
    } else if (reason == kProcessDetach) {
        ZYLMsgModules_finalize(tallyOfLoad);
    }
    return 1;
}

#ifndef _WIN32
/// Replaces the loader's notifications on systems that have none. This file is linked last into the
/// library, so this object is constructed last and destroyed first of all its static objects. It does not
/// call DllMain, because another library of the process may define that symbol and would then receive the
/// calls.
struct LoaderNotification {
    LoaderNotification() { OnLoaderNotification(kProcessAttach); }
    ~LoaderNotification() { OnLoaderNotification(kProcessDetach); }
};
const LoaderNotification loaderNotification;
#endif

}  // namespace

/// The load and unload entry, called by the system's loader only.
extern "C" ZYLMSGMODULES_EXPORT int DllMain(void* /*module*/, unsigned reason, void* /*reserved*/) {
    return OnLoaderNotification(reason);
}

void ZYLMsgModules_initialize(int& count) {
    if (!library.Initialize(count)) {
        return;
    }
    for (const Module& module : kModules) {
        module.initialize(count);
    }
}

void ZYLMsgModules_finalize(int& count) {
    if (!library.Finalize(count)) {
        return;
    }
    for (auto module = std::rbegin(kModules); module != std::rend(kModules); ++module) {
        module->finalize(count);
    }
}

void ZYLMsgModules_specific_initialize(int& count) {
    specific.Initialize(count);
}
void ZYLMsgModules_specific_finalize(int& count) {
    specific.Finalize(count);
}

void ZYLMsgBackbone_initialize(int& count) {
    backbone.Initialize(count);
}
void ZYLMsgBackbone_finalize(int& count) {
    backbone.Finalize(count);
}

void ZYLMsgTypes_initialize(int& count) {
    types.Initialize(count);
}
void ZYLMsgTypes_finalize(int& count) {
    types.Finalize(count);
}

void ZYLMsgUtils_initialize(int& count) {
    utils.Initialize(count);
}
void ZYLMsgUtils_finalize(int& count) {
    utils.Finalize(count);
}

void ZYLMsgHandlers_initialize(int& count) {
    handlers.Initialize(count);
}
void ZYLMsgHandlers_finalize(int& count) {
    handlers.Finalize(count);
}

void ZYLFeaBackbone_initialize(int& /*count*/) {}
void ZYLFeaBackbone_finalize(int& /*count*/) {}

void ZYLMsgModules_initializeC(void) {
    ZYLMsgModules_initialize(tallyOfC);
}
void ZYLMsgModules_finalizeC(void) {
    ZYLMsgModules_finalize(tallyOfC);
}
