#include "ZYLMsgFwdHandler.h"

#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBMessage.h"

ZYLMsgFwdHandler::ZYLMsgFwdHandler(const ZYLString& target, int communicator)
    : m_target(target), m_communicator(communicator) {}

ZYLMsgFwdHandler::~ZYLMsgFwdHandler() = default;

void ZYLMsgFwdHandler::SetTrace(FILE* stream) {
    m_trace = stream != nullptr;
    m_traceStream = stream;
}

void ZYLMsgFwdHandler::HandleMessage(const ZYLMsgBBMessage& message, const char* /*id*/) {
    ZYLMsgBBAPI::SendRequest(m_communicator, m_target.GetUTF8(), message);
    if (m_trace && m_traceStream != nullptr) {
        message.Print(m_traceStream, nullptr);
    }
}
