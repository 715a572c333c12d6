#ifndef ZYLMSGFILETRANSFERWAIT_H
#define ZYLMSGFILETRANSFERWAIT_H

#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgHeldFile.h"

/// A SendFile or ReceiveFile under way: a local object of the operation. Waits nest when a handler begins
/// another operation; the engine points to the innermost.
struct ZYLMsgFileTransfer::Wait {
    Wait(ZYLMsgFileTransfer& engine, Awaited awaited, const char* application);
    ~Wait();
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;

    void Run();
    /// Replaces Run when there is nothing to wait for: delivers pending messages and loss reports.
    void Look();
    void End(const ZYLMsgFileTransferOutcome& outcome);

    ZYLMsgFileTransfer& m_engine;
    Wait* const m_outer;
    const Awaited m_awaited;
    const ZYLString m_application;         // the other side
    ZYLString m_sender;                    // the source application of a SendFile
    ZYLMsgHeldFile* m_sentFile = nullptr;  // the file of a SendFile
    bool m_isRunning = false;
    bool m_isOver = false;
    ZYLMsgFileTransferOutcome m_outcome;
};

#endif
