#ifndef ZYLMSGMODULESEXPORT_H
#define ZYLMSGMODULESEXPORT_H

/// Marks what ZYLMsgModules exports; everything else in it stays hidden.
#if defined(_WIN32) && defined(ZYLMSGMODULES_BUILD)
#define ZYLMSGMODULES_EXPORT __declspec(dllexport)
#elif defined(_WIN32)
#define ZYLMSGMODULES_EXPORT __declspec(dllimport)
#else
#define ZYLMSGMODULES_EXPORT __attribute__((visibility("default")))
#endif

#endif
