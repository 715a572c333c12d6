#ifndef ZYLMSGFILETRANSFERWAIT_H
#define ZYLMSGFILETRANSFERWAIT_H

#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgHeldFile.h"

/// A SendFile or ReceiveFile that is under way: a local object of the operation. They nest when a handler
/// begins another one, and the engine knows the innermost.
struct ZYLMsgFileTransfer::Wait {
    Wait(ZYLMsgFileTransfer& engine, Awaited awaited, const char* application);
    ~Wait();
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;

    void Run();
    /// Instead of a wait that has ended before it began: lets come what has come, such as the report of the
    /// loss.
    void Look();
    void End(const ZYLMsgFileTransferOutcome& outcome);

    ZYLMsgFileTransfer& m_engine;
    Wait* const m_outer;
    const Awaited m_awaited;
    const ZYLString m_application;         // the other side
    ZYLString m_sender;                    // of a SendFile: its source application,
    ZYLMsgHeldFile* m_sentFile = nullptr;  // and its file
    bool m_isRunning = false;
    bool m_isOver = false;
    ZYLMsgFileTransferOutcome m_outcome;
};

#endif
