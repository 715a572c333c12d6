#include "ZYLMsgPrintingHandler.h"

#include "QORText.h"
#include "ZYLMsgBBMessage.h"

ZYLMsgPrintingHandler::ZYLMsgPrintingHandler(FILE* stream) : m_stream(stream) {}

ZYLMsgPrintingHandler::~ZYLMsgPrintingHandler() = default;

void ZYLMsgPrintingHandler::HandleMessage(const ZYLMsgBBMessage& message, const char* id) {
    if (m_stream == nullptr) {
        return;
    }
    fprintf(m_stream, "ZYLMsgPrintingHandler::HandleMessage -- id %s\n", QORText::OrEmpty(id));
    fflush(m_stream);
    message.Print(m_stream, nullptr);
}
