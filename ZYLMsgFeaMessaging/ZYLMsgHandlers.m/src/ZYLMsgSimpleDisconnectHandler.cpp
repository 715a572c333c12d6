#include "ZYLMsgSimpleDisconnectHandler.h"

#include <cstdio>
#include <cstdlib>

#include "QORText.h"

namespace {

ZYLString UpperCase(const char* host) {
    ZYLString upper = ZYLString::BuildFromUTF8(host);
    upper.ASCIIToUpper();
    return upper;
}

}  // namespace

ZYLMsgSimpleDisconnectHandler::ZYLMsgSimpleDisconnectHandler() = default;

ZYLMsgSimpleDisconnectHandler::~ZYLMsgSimpleDisconnectHandler() = default;

void ZYLMsgSimpleDisconnectHandler::SetWatchApplication(const char* app, int pid, const char* host) {
    m_watchApplication = ZYLString::BuildFromUTF8(app);
    m_watchProcess = pid;
    if (host != nullptr) {
        m_watchHost = UpperCase(host);
    }
}

void ZYLMsgSimpleDisconnectHandler::SetDisconnectBehavior(e_behavior behavior) {
    m_behavior = behavior;
}

int& ZYLMsgSimpleDisconnectHandler::EndingCondition() {
    return m_endingCondition;
}

void ZYLMsgSimpleDisconnectHandler::DetectDisconnection(int pid, const char* app, const char* host,
                                                        const char* user) const {
    app = QORText::OrEmpty(app);
    host = QORText::OrEmpty(host);
    fprintf(stderr, "in disconnection handler, process %d -- app -- %s -- host %s -- user %s\n", pid, app,
            host, QORText::OrEmpty(user));
    fflush(stderr);
    if (!IsWatched(pid, app, host)) {
        return;
    }
    fprintf(stderr, "Exit Handler -- confirm exit\n");
    if (m_behavior == e_exit) {
        fflush(stderr);
        exit(0);
    }
    m_endingCondition = 0;
}

bool ZYLMsgSimpleDisconnectHandler::IsWatched(int pid, const char* app, const char* host) const {
    return m_watchApplication == app || (pid == m_watchProcess && UpperCase(host) == m_watchHost);
}
