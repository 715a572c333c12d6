#ifndef ZYLPLATFORMEXPORT_H
#define ZYLPLATFORMEXPORT_H

/// Marks what ZYLPlatform exports; everything else in it stays hidden.
#if defined(_WIN32) && defined(ZYLPLATFORM_BUILD)
#define ZYLPLATFORM_EXPORT __declspec(dllexport)
#elif defined(_WIN32)
#define ZYLPLATFORM_EXPORT __declspec(dllimport)
#else
#define ZYLPLATFORM_EXPORT __attribute__((visibility("default")))
#endif

#endif
