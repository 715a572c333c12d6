#include "ZYLMsgStreamUtils.h"

#include <climits>
#include <cstddef>

#include "ZYLMsgWireReader.h"
#include "mem_Copy.h"

// The numbers of the library's own messages, and of a solver's.
template ZYLMSGMODULES_EXPORT unsigned int ZYLSimRpm_Swapper::ExternalizeScalar(char* out, const int& value);
template ZYLMSGMODULES_EXPORT unsigned int ZYLSimRpm_Swapper::InternalizeScalar(const char* in, int& value);
template ZYLMSGMODULES_EXPORT unsigned int ZYLSimRpm_Swapper::ExternalizeScalar(char* out,
                                                                                const double& value);
template ZYLMSGMODULES_EXPORT unsigned int ZYLSimRpm_Swapper::InternalizeScalar(const char* in,
                                                                                double& value);

void ZYLMsgStreamUtils::StreamZYLString(const ZYLString& s, char* buffer, int& offset) {
    const int length = s.GetLengthInByte();
    offset += static_cast<int>(ZYLSimRpm_Swapper::ExternalizeScalar(buffer + offset, length));
    mem_Copy(buffer + offset, s.GetUTF8(), static_cast<std::size_t>(length));
    offset += length;
}

void ZYLMsgStreamUtils::UnstreamZYLString(ZYLString& s, const char* buffer, int& offset) {
    ZYLMsgWireReader reader(buffer + offset, INT_MAX - offset);
    reader.ReadString(s, "string");
    offset = INT_MAX - reader.Left();
}
