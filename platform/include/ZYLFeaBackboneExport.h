#ifndef ZYLFEABACKBONEEXPORT_H
#define ZYLFEABACKBONEEXPORT_H

/// Marks what ZYLFeaBackbone exports; everything else in it stays hidden.
#if defined(_WIN32) && defined(ZYLFEABACKBONE_BUILD)
#define ZYLFEABACKBONE_EXPORT __declspec(dllexport)
#elif defined(_WIN32)
#define ZYLFEABACKBONE_EXPORT __declspec(dllimport)
#else
#define ZYLFEABACKBONE_EXPORT __attribute__((visibility("default")))
#endif

#endif
