#ifndef ZYLMSGMODULES_H
#define ZYLMSGMODULES_H

#include "ZYLMsgModulesExport.h"

/// Initialises and finalises the library and its modules. C callers see only the two functions at the end.
///
/// Every module counts its initialisations minus its finalisations. `count` is the caller's tally, which
/// the library never reads: the first initialisation of a module adds 1 to it, the last finalisation
/// subtracts 1. Counters are never clamped: a surplus finalisation leaves -1, and the next initialisation
/// only restores 0.
///
/// Loading the shared library initialises it once, after its static objects are constructed; unloading it,
/// or the end of the process, finalises it once, before they are destroyed. Other callers therefore only
/// raise and lower the counter, and must balance their calls; the last finalisation does the work.
///
/// The functions take no lock: two threads must not call them at once.

#ifdef __cplusplus

/// Counts an initialisation of the library. The first one adds 1 to `count` and then initialises, with
/// `count`, the eight libraries it depends on, its own modules (backbone, types, utilities, handlers) and
/// the specific step.
ZYLMSGMODULES_EXPORT void ZYLMsgModules_initialize(int& count);
/// Counts a finalisation. The last one subtracts 1 from `count` and undoes the initialisation in reverse
/// order.
ZYLMSGMODULES_EXPORT void ZYLMsgModules_finalize(int& count);

/// The specific step alone; it has a counter of its own.
ZYLMSGMODULES_EXPORT void ZYLMsgModules_specific_initialize(int& count);
ZYLMSGMODULES_EXPORT void ZYLMsgModules_specific_finalize(int& count);

/// The library's own modules. They count and do nothing else.
ZYLMSGMODULES_EXPORT void ZYLMsgBackbone_initialize(int& count);
ZYLMSGMODULES_EXPORT void ZYLMsgBackbone_finalize(int& count);
ZYLMSGMODULES_EXPORT void ZYLMsgTypes_initialize(int& count);
ZYLMSGMODULES_EXPORT void ZYLMsgTypes_finalize(int& count);
ZYLMSGMODULES_EXPORT void ZYLMsgUtils_initialize(int& count);
ZYLMSGMODULES_EXPORT void ZYLMsgUtils_finalize(int& count);
ZYLMSGMODULES_EXPORT void ZYLMsgHandlers_initialize(int& count);
ZYLMSGMODULES_EXPORT void ZYLMsgHandlers_finalize(int& count);

/// Do nothing at all, and are not part of the library's own initialisation.
ZYLMSGMODULES_EXPORT void ZYLFeaBackbone_initialize(int& count);
ZYLMSGMODULES_EXPORT void ZYLFeaBackbone_finalize(int& count);

extern "C" {
#endif

/// ZYLMsgModules_initialize with one tally that all callers of these two functions share.
ZYLMSGMODULES_EXPORT void ZYLMsgModules_initializeC(void);
/// ZYLMsgModules_finalize with the same tally.
ZYLMSGMODULES_EXPORT void ZYLMsgModules_finalizeC(void);

#ifdef __cplusplus
}
#endif

#endif
