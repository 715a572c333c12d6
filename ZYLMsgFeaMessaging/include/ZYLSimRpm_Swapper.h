#ifndef ZYLSIMRPM_SWAPPER_H
#define ZYLSIMRPM_SWAPPER_H

#include <cstddef>
#include <cstring>
#include <type_traits>

/// Copies a scalar of N bytes between its place in memory and its place on the wire, unchanged: the
/// system's hosts are little-endian, as the wire is. There are two widths, for int and float and for long
/// long and double. Neither side need be aligned.
template <std::size_t N>
requires(N == 4 || N == 8) class ZYLSimRpm_SwapperTraits {
    friend class ZYLSimRpm_Swapper;

    static void Externalize(char* out, const void* in) { std::memcpy(out, in, N); }
    static void Internalize(const char* in, void* out) { std::memcpy(out, in, N); }
};

/// Writes and reads single scalars in their wire form. It has no state and no checks: the caller makes
/// sure that sizeof(T) bytes are available. Each routine returns the number of bytes written or read. T is
/// a number of 4 or 8 bytes that has the same width on every host, so not long.
class ZYLSimRpm_Swapper {
  public:
    template <class T>
    requires std::is_arithmetic_v<T>
    static unsigned int ExternalizeScalar(char* out, const T& value) {
        ZYLSimRpm_SwapperTraits<sizeof(T)>::Externalize(out, &value);
        return sizeof(T);
    }

    template <class T>
    requires std::is_arithmetic_v<T>
    static unsigned int InternalizeScalar(const char* in, T& value) {
        ZYLSimRpm_SwapperTraits<sizeof(T)>::Internalize(in, &value);
        return sizeof(T);
    }
};

#endif
