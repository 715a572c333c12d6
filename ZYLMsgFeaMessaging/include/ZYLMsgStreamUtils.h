#ifndef ZYLMSGSTREAMUTILS_H
#define ZYLMSGSTREAMUTILS_H

#include <cstddef>

#include "ZYLMsgModulesExport.h"
#include "ZYLSimRpm_Swapper.h"
#include "ZYLString.h"
#include "mem_Copy.h"

/// Writes and reads strings in their wire form at a running offset, which each routine advances past the
/// item: its length in bytes as a 32-bit integer, least significant byte first, then its UTF-8 bytes, without
/// NUL or padding. Static members only; no state.
class ZYLMsgStreamUtils {
  public:
    /// Writes `s` at `buffer + offset`, where the caller has made room for 4 + s.GetLengthInByte() bytes.
    ZYLMSGMODULES_EXPORT static void StreamZYLString(const ZYLString& s, char* buffer, int& offset) {
        const int length = s.GetLengthInByte();
        offset += static_cast<int>(ZYLSimRpm_Swapper::ExternalizeScalar(buffer + offset, length));
        mem_Copy(buffer + offset, s.GetUTF8(), static_cast<std::size_t>(length));
        offset += length;
    }

    /// Replaces `s` by the string at `buffer + offset`, up to the first NUL in it; other copies of its old
    /// text keep it. The size of the buffer is not known here, so a length is refused (fatal, in the
    /// ZYLMsgWireReader's words) only when it is negative or takes the offset beyond 2^31 - 1: bytes that may
    /// be foreign are read with a ZYLMsgWireReader instead, as all messages of the library do.
    ZYLMSGMODULES_EXPORT static void UnstreamZYLString(ZYLString& s, const char* buffer, int& offset);
};

#endif
