#include "ZYLModuleInitializers.h"

#include "ZYLModuleCounter.h"

namespace {

constinit ZYLModuleCounter poolManager;
constinit ZYLModuleCounter simContainers;
constinit ZYLModuleCounter xmlDocument;
constinit ZYLModuleCounter xmlParser;
constinit ZYLModuleCounter shared;
constinit ZYLModuleCounter coreUtils;
constinit ZYLModuleCounter genericsLib;
constinit ZYLModuleCounter alloc;

}  // namespace

void ZYLSimPoolManager_initialize(int& count) {
    poolManager.Initialize(count);
}
void ZYLSimPoolManager_finalize(int& count) {
    poolManager.Finalize(count);
}

void ZYLSimContainers_initialize(int& count) {
    simContainers.Initialize(count);
}
void ZYLSimContainers_finalize(int& count) {
    simContainers.Finalize(count);
}

void ZYLBasXmlDocument_initialize(int& count) {
    xmlDocument.Initialize(count);
}
void ZYLBasXmlDocument_finalize(int& count) {
    xmlDocument.Finalize(count);
}

void ZYLBasXmlParser_initialize(int& count) {
    xmlParser.Initialize(count);
}
void ZYLBasXmlParser_finalize(int& count) {
    xmlParser.Finalize(count);
}

void ZYLBasShared_initialize(int& count) {
    shared.Initialize(count);
}
void ZYLBasShared_finalize(int& count) {
    shared.Finalize(count);
}

void ZYLBasCoreUtils_initialize(int& count) {
    coreUtils.Initialize(count);
}
void ZYLBasCoreUtils_finalize(int& count) {
    coreUtils.Finalize(count);
}

void ZYLBasGenericsLib_initialize(int& count) {
    genericsLib.Initialize(count);
}
void ZYLBasGenericsLib_finalize(int& count) {
    genericsLib.Finalize(count);
}

void ZYLBasAlloc_initialize(int& count) {
    alloc.Initialize(count);
}
void ZYLBasAlloc_finalize(int& count) {
    alloc.Finalize(count);
}
