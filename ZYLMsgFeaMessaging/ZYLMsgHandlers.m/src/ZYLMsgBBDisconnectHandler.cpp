#include "ZYLMsgBBDisconnectHandler.h"

ZYLMsgBBDisconnectHandler::ZYLMsgBBDisconnectHandler() = default;

ZYLMsgBBDisconnectHandler::~ZYLMsgBBDisconnectHandler() = default;
