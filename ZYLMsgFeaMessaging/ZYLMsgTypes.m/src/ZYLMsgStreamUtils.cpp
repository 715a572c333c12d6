#include "ZYLMsgStreamUtils.h"

#include <climits>

#include "ZYLMsgWireReader.h"

void ZYLMsgStreamUtils::UnstreamZYLString(ZYLString& s, const char* buffer, int& offset) {
    ZYLMsgWireReader reader(buffer + offset, INT_MAX - offset);
    reader.ReadString(s, "string");
    offset = INT_MAX - reader.Left();
}
