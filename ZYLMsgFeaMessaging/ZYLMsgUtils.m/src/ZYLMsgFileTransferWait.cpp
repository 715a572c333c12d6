#include "ZYLMsgFileTransferWait.h"

#include <utility>

#include "ZYLMsgBBAPI.h"
#include "ZYLMsgFileTransferTexts.h"

ZYLMsgFileTransfer::Wait::Wait(ZYLMsgFileTransfer& engine, Awaited awaited, const char* application)
    : m_engine(engine),
      m_outer(engine.m_innermostWait),
      m_awaited(awaited),
      m_application(ZYLString::BuildFromUTF8(application)) {
    const char* event = awaited == Awaited::kFile ? "sent all of the file" : "confirmed the copy";
    m_outcome.ok = false;
    m_outcome.text =
        ZYLString::BuildFromUTF8(ZYLMsgFileTransferTexts::EndedByAnother(application, event).c_str());
    engine.m_innermostWait = this;
}

ZYLMsgFileTransfer::Wait::~Wait() {
    m_engine.m_innermostWait = m_outer;
}

void ZYLMsgFileTransfer::Wait::Run() {
    m_isRunning = true;
    m_engine.m_endingCondition = m_isOver ? 0 : -1;
    ZYLMsgBBAPI::WaitingLoop(m_engine.m_communicatorId, -1, m_engine.m_endingCondition);
}

void ZYLMsgFileTransfer::Wait::Look() {
    const int before = std::exchange(m_engine.m_endingCondition, -1);
    ZYLMsgBBAPI::WaitingLoop(m_engine.m_communicatorId, 0, m_engine.m_endingCondition);
    if (m_engine.m_endingCondition == -1) {
        m_engine.m_endingCondition = before;
    }
}

void ZYLMsgFileTransfer::Wait::End(const ZYLMsgFileTransferOutcome& outcome) {
    m_isOver = true;
    m_outcome = outcome;
}

void ZYLMsgFileTransfer::ReleaseSentFiles(const char* sourceApplication) const {
    const ZYLString source = ZYLString::BuildFromUTF8(sourceApplication);
    for (Wait* wait = m_innermostWait; wait != nullptr; wait = wait->m_outer) {
        if (wait->m_isRunning && wait->m_sentFile != nullptr && wait->m_sender != source) {
            wait->m_sentFile->Release();
        }
    }
}

ZYLMsgFileTransfer::Wait* ZYLMsgFileTransfer::OldestWait(Awaited awaited,
                                                         const ZYLString* application) const {
    Wait* oldest = nullptr;
    for (Wait* wait = m_innermostWait; wait != nullptr; wait = wait->m_outer) {
        if (!wait->m_isOver && wait->m_awaited == awaited &&
            (application == nullptr || wait->m_application == *application)) {
            oldest = wait;
        }
    }
    return oldest;
}

bool ZYLMsgFileTransfer::IsKnown(const ZYLString& application) const {
    bool isKnown = m_receptionMap.find(application) != m_receptionMap.end();
    for (const Wait* wait = m_innermostWait; wait != nullptr; wait = wait->m_outer) {
        isKnown = isKnown || wait->m_application == application;
    }
    return isKnown;
}
