#ifndef ZYLFOUNDATIONEXPORT_H
#define ZYLFOUNDATIONEXPORT_H

/// Marks what ZYLMsgModules exports of the foundation, whose compiled part it carries.
#if defined(_WIN32) && defined(ZYLMSGMODULES_BUILD)
#define ZYLFOUNDATION_EXPORT __declspec(dllexport)
#elif defined(_WIN32)
#define ZYLFOUNDATION_EXPORT __declspec(dllimport)
#else
#define ZYLFOUNDATION_EXPORT __attribute__((visibility("default")))
#endif

#endif
