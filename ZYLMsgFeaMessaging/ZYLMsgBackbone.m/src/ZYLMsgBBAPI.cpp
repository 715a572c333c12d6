#include "ZYLMsgBBAPI.h"

#include "QORText.h"
#include "ZYLFeaBackbone.h"
#include "ZYLMsgBBCallbackManager.h"

void ZYLMsgBBAPI::RegisterCommunicator(const char* name, int& communicator) {
    ::RegisterCommunicator(QORText::OrEmpty(name), &communicator);
}

void ZYLMsgBBAPI::DeclareApplicationId(int communicator, const char* applicationId, bool announce) {
    ::DeclareApplicationId(communicator, QORText::OrEmpty(applicationId), announce);
}

void ZYLMsgBBAPI::EnableReceiveHandling(int communicator, const char* application) {
    ::AssociateHandler(communicator, QORText::OrEmpty(application), ZYLMsgBBCallbackManager::HandleMessage);
}

void ZYLMsgBBAPI::EnableDisconnectHandling(int communicator, const char* application) {
    ZYLMsgBBCallbackManager::ExpectDisconnectHandler(application);
    ::AssociateDisconnectHandler(communicator, QORText::OrEmpty(application),
                                 ZYLMsgBBCallbackManager::Disconnection);
}

void ZYLMsgBBAPI::SendRequest(int communicator, const char* target, const ZYLMsgBBMessage& message) {
    ZYLMsgBBCallbackManager::AppendMessageToSend(&message);
    ::SendRequest(communicator, QORText::OrEmpty(target), ZYLMsgBBCallbackManager::StreamPendingMessage,
                  ZYLMsgBBCallbackManager::RequiredBufferSizeOfPendingMessage,
                  ZYLMsgBBCallbackManager::TypeOfPendingMessage);
}

void ZYLMsgBBAPI::WaitingLoop(int communicator, int limit, int& endingCondition) {
    ::WaitingLoop(communicator, limit, &endingCondition);
}

void ZYLMsgBBAPI::BBSysLoopWait(int& endingCondition, int limit) {
    ::BBSysLoopWait(&endingCondition, limit);
}

void ZYLMsgBBAPI::AssociateHandler(const ZYLMsgBBCallbackManager*) {}
