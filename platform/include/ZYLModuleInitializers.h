#ifndef ZYLMODULEINITIALIZERS_H
#define ZYLMODULEINITIALIZERS_H

#include "ZYLPlatformExport.h"

/// The initialisers and finalisers of the platform's libraries, in the order in which a user calls the
/// initialisers; the finalisers are called in the reverse order.
///
/// Each library counts its users. `count` is the caller's tally: the first initialisation adds 1 to it,
/// the last finalisation subtracts 1, and no other call changes it. These libraries need no other
/// preparation, so their functions may be called before the first initialisation. Not synchronised; calls
/// must balance.

ZYLPLATFORM_EXPORT void ZYLSimPoolManager_initialize(int& count);
ZYLPLATFORM_EXPORT void ZYLSimPoolManager_finalize(int& count);

ZYLPLATFORM_EXPORT void ZYLSimContainers_initialize(int& count);
ZYLPLATFORM_EXPORT void ZYLSimContainers_finalize(int& count);

ZYLPLATFORM_EXPORT void ZYLBasXmlDocument_initialize(int& count);
ZYLPLATFORM_EXPORT void ZYLBasXmlDocument_finalize(int& count);

ZYLPLATFORM_EXPORT void ZYLBasXmlParser_initialize(int& count);
ZYLPLATFORM_EXPORT void ZYLBasXmlParser_finalize(int& count);

ZYLPLATFORM_EXPORT void ZYLBasShared_initialize(int& count);
ZYLPLATFORM_EXPORT void ZYLBasShared_finalize(int& count);

ZYLPLATFORM_EXPORT void ZYLBasCoreUtils_initialize(int& count);
ZYLPLATFORM_EXPORT void ZYLBasCoreUtils_finalize(int& count);

ZYLPLATFORM_EXPORT void ZYLBasGenericsLib_initialize(int& count);
ZYLPLATFORM_EXPORT void ZYLBasGenericsLib_finalize(int& count);

ZYLPLATFORM_EXPORT void ZYLBasAlloc_initialize(int& count);
ZYLPLATFORM_EXPORT void ZYLBasAlloc_finalize(int& count);

#endif
