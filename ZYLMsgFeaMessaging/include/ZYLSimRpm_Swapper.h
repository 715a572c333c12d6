#ifndef ZYLSIMRPM_SWAPPER_H
#define ZYLSIMRPM_SWAPPER_H

#include <cstddef>
#include <cstring>

/// Copies a scalar of N bytes between its place in memory and its place on the wire, unchanged: the system's
/// hosts are little-endian, as the wire is. Only the four-byte width exists. Neither side need be aligned.
template <std::size_t N>
class ZYLSimRpm_SwapperTraits;

template <>
class ZYLSimRpm_SwapperTraits<4> {
    friend class ZYLSimRpm_Swapper;

    static void Externalize(char* out, const void* in) { std::memcpy(out, in, 4); }
    static void Internalize(const char* in, void* out) { std::memcpy(out, in, 4); }
};

/// Writes and reads single scalars in their wire form. It holds no state and tests nothing: the caller has
/// checked that sizeof(T) bytes stand at the place it names. Each routine returns the number of bytes it has
/// handled.
class ZYLSimRpm_Swapper {
  public:
    template <class T>
    static unsigned int ExternalizeScalar(char* out, const T& value) {
        ZYLSimRpm_SwapperTraits<sizeof(T)>::Externalize(out, &value);
        return sizeof(T);
    }

    template <class T>
    static unsigned int InternalizeScalar(const char* in, T& value) {
        ZYLSimRpm_SwapperTraits<sizeof(T)>::Internalize(in, &value);
        return sizeof(T);
    }
};

#endif
