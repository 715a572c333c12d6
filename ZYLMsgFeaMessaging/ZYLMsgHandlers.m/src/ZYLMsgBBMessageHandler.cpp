#include "ZYLMsgBBMessageHandler.h"

ZYLMsgBBMessageHandler::ZYLMsgBBMessageHandler() = default;

ZYLMsgBBMessageHandler::~ZYLMsgBBMessageHandler() = default;
