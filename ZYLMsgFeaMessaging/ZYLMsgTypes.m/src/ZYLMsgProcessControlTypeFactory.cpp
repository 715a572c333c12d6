#include "ZYLMsgProcessControlTypeFactory.h"

#include "ZYLMsgProcessControlEncoder.h"
#include "ZYLMsgProcessControlType.h"

template class ZYLMSGMODULES_EXPORT ZYLBasSharedPtr<ZYLMsgProcessControlType>;
template class ZYLMSGMODULES_EXPORT ZYLBasSharedPtr<ZYLMsgBBMessage>;

ZYLBasSharedPtr<ZYLMsgBBMessage> ZYLMsgProcessControlTypeFactory::CreateSoftKillMsg() {
    return CreateKillMsg("SOFT_KILL");
}

ZYLBasSharedPtr<ZYLMsgBBMessage> ZYLMsgProcessControlTypeFactory::CreateHardKillMsg() {
    return CreateKillMsg("HARD_KILL");
}

ZYLBasSharedPtr<ZYLMsgBBMessage> ZYLMsgProcessControlTypeFactory::CreateKillMsg(const char* killType) {
    const ZYLBasSharedPtr<ZYLMsgProcessControlType> message(new ZYLMsgProcessControlType);
    message->m_processControlType = ZYLMsgProcessControlType::PROCESS_CONTROL_KILL;
    message->m_attributes[ZYLString::BuildFromUTF8("Kill")] = ZYLString::BuildFromUTF8(killType);
    ZYLMsgProcessControlEncoder::ExternalizeProcessControlMsg(*message);
    return message;
}
