#ifndef ZYLMSGSTREAMUTILS_H
#define ZYLMSGSTREAMUTILS_H

#include <cstddef>

#include "ZYLMsgModulesExport.h"
#include "ZYLSimRpm_Swapper.h"
#include "ZYLString.h"
#include "mem_Copy.h"

/// Writes and reads wire strings at an offset, which each routine advances past the string. A wire string
/// is its length in bytes as a 32-bit integer, least significant byte first, and its UTF-8 bytes, without
/// NUL or padding. Static members only; no state.
class ZYLMsgStreamUtils {
  public:
    /// Writes `s` at `buffer + offset`, which has room for 4 + s.GetLengthInByte() bytes.
    ZYLMSGMODULES_EXPORT static void StreamZYLString(const ZYLString& s, char* buffer, int& offset) {
        const int length = s.GetLengthInByte();
        offset += static_cast<int>(ZYLSimRpm_Swapper::ExternalizeScalar(buffer + offset, length));
        mem_Copy(buffer + offset, s.GetUTF8(), static_cast<std::size_t>(length));
        offset += length;
    }

    /// Replaces `s` by the string at `buffer + offset`, up to the first NUL in it. This function does not
    /// know the size of the buffer: it refuses a length (fatal, with the text of ZYLMsgWireReader) only if
    /// the length is negative or takes the offset beyond 2^31 - 1. Use a ZYLMsgWireReader for bytes that
    /// are not trusted, as all messages of the library do.
    ZYLMSGMODULES_EXPORT static void UnstreamZYLString(ZYLString& s, const char* buffer, int& offset);
};

#endif
