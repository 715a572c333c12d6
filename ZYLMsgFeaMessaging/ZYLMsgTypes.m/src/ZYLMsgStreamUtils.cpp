#include "ZYLMsgStreamUtils.h"

#include <climits>

#include "ZYLMsgWireReader.h"

// The number types of the library's own messages and of a solver's.
template ZYLMSGMODULES_EXPORT unsigned int ZYLSimRpm_Swapper::ExternalizeScalar(char* out, const int& value);
template ZYLMSGMODULES_EXPORT unsigned int ZYLSimRpm_Swapper::InternalizeScalar(const char* in, int& value);
template ZYLMSGMODULES_EXPORT unsigned int ZYLSimRpm_Swapper::ExternalizeScalar(char* out,
                                                                                const double& value);
template ZYLMSGMODULES_EXPORT unsigned int ZYLSimRpm_Swapper::InternalizeScalar(const char* in,
                                                                                double& value);

namespace {

/// Taking the address of the inline function makes it a symbol of the library.
[[gnu::used]] constexpr auto kStreamZYLString = &ZYLMsgStreamUtils::StreamZYLString;

}  // namespace

void ZYLMsgStreamUtils::UnstreamZYLString(ZYLString& s, const char* buffer, int& offset) {
    ZYLMsgWireReader reader(buffer + offset, INT_MAX - offset);
    reader.ReadString(s, "string");
    offset = INT_MAX - reader.Left();
}
