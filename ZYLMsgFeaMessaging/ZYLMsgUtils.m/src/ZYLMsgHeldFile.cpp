#include "ZYLMsgHeldFile.h"

#include "ZYLBasFileOps.h"
#include "ZYLCRuntime.h"

ZYLMsgHeldFile::ZYLMsgHeldFile(int descriptor) : m_descriptor(descriptor) {
    if (descriptor >= 0) {
        ZYLBasFileOps::Hold(descriptor);
    }
}

ZYLMsgHeldFile::~ZYLMsgHeldFile() {
    Release();
}

void ZYLMsgHeldFile::Release() {
    if (m_descriptor >= 0) {
        ZYLBasFileOps::Release(m_descriptor);
        _close(m_descriptor);
        m_descriptor = -1;
    }
}
