#include "ZYLMsgStreamUtils.h"

#include <algorithm>
#include <climits>

#include "ZYLMsgWireReader.h"
#include "ZYLSimRpm_Swapper.h"

void ZYLMsgStreamUtils::StreamZYLString(const ZYLString& s, char* buffer, int& offset) {
    const int length = s.GetLengthInByte();
    char* const text = buffer + offset + ZYLSimRpm_Swapper::ExternalizeScalar(buffer + offset, length);
    offset = static_cast<int>(std::copy_n(s.GetUTF8(), length, text) - buffer);
}

void ZYLMsgStreamUtils::UnstreamZYLString(ZYLString& s, const char* buffer, int& offset) {
    ZYLMsgWireReader reader(buffer + offset, INT_MAX - offset);
    s = reader.ReadString("string");
    offset = INT_MAX - reader.Left();
}
