#ifndef ZYLMSGFILETRANSFER_H
#define ZYLMSGFILETRANSFER_H

#include <cstdio>

#include "ZYLBasMap.h"
#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

class ZYLMsgFileTransferHandler;
class ZYLMsgFileTransferType;

/// Copies files between applications, byte for byte, in numbered chunks of at most 65536 bytes.
///
/// Each application that takes part makes one engine, and registers a ZYLMsgFileTransferHandler for it, with
/// a ZYLMsgFileTransferType as its prototype, at the callback manager. The engine must outlive that
/// registration. It is used on one thread, the one on which the handlers run, and its memory does not grow
/// with the files.
///
/// An application's message identifier (ZYLMsgBBCallbackManager::SetMessageID) must equal the name under
/// which it is the source application of a transfer: chunks and completions carry no name, the receiver knows
/// them by the identifier they arrive with. Those of a sender with another identifier are a fatal error at
/// the receiver.
///
/// An engine sends one file at a time, and receives one file at a time from each source application, from any
/// number of them at once. Two files at once from the same source are a fatal error at the receiver.
///
/// One ending condition serves every wait of an engine: the end of any reception, and any confirmation, end
/// the wait that is on, whichever transfer it was for. An application that has several transfers under way at
/// once cannot tell from a return of SendFile or ReceiveFile that its own one is the one that ended.
///
/// Every operation returns 0. A source that cannot be opened or read gives an empty or short copy; a target
/// that cannot be opened or written gives none or a damaged one; the transfer runs to its end either way.
/// Broken rules of the protocol (a chunk out of sequence, a chunk without bytes, a completion for no file)
/// are fatal errors.
///
/// Diagnostics go to the log stream: the course of a transfer and the first failed write of each file at
/// level 1, each chunk and each file opened at level 4. A verbosity of n writes the lines of the levels up to
/// n.
class ZYLMSGMODULES_EXPORT ZYLMsgFileTransfer {
  public:
    /// `logStream` is not owned and must outlive the engine. Without one, lines go to standard error.
    ZYLMsgFileTransfer(int communicatorId, FILE* logStream, int verbosity);

    /// Leaves the files that are still being received open.
    ~ZYLMsgFileTransfer();

    ZYLMsgFileTransfer(const ZYLMsgFileTransfer&) = delete;
    ZYLMsgFileTransfer& operator=(const ZYLMsgFileTransfer&) = delete;

    /// Sends a file and waits for the receiver's confirmation that the copy is written and closed.
    ///
    /// The wait has no bound. A receiver that is lost never confirms, and a message that could not be
    /// delivered is not reported here: the caller waits on, unless a disconnect handler ends the process.
    ///
    /// The file is read from ZYLMsgPathExplorer::FormPath of the three source strings here, and written to
    /// FormPath of the three target strings there (created with mode 0640, or emptied).
    int SendFile(const char* sourceApplication, const char* sourceBaseDir, const char* sourceJobDir,
                 const char* sourceFileName, const char* targetApplication, const char* targetBaseDir,
                 const char* targetJobDir, const char* targetFileName);

    /// Sends a file like SendFile, and returns as soon as its last message is sent.
    int ISendFile(const char* sourceApplication, const char* sourceBaseDir, const char* sourceJobDir,
                  const char* sourceFileName, const char* targetApplication, const char* targetBaseDir,
                  const char* targetJobDir, const char* targetFileName);

    /// Asks the source application for a file and waits until the copy is written here and closed.
    ///
    /// The wait has no bound. A source that is lost never completes the file: the caller waits on, unless a
    /// disconnect handler ends the process. `targetApplication` is this application; the other strings are
    /// those of SendFile.
    int ReceiveFile(const char* sourceApplication, const char* sourceBaseDir, const char* sourceJobDir,
                    const char* sourceFileName, const char* targetApplication, const char* targetBaseDir,
                    const char* targetJobDir, const char* targetFileName);

    /// Lets the next message and the next wait use another communicator.
    int SetCommunicatorId(int communicatorId);

    /// Restricts what other applications may have read or written here to files in `count` directories and
    /// below them. Without this call any file that this process may open is theirs to name.
    ///
    /// Confined are the requests that come in: the files that a ReceiveFile of another application wants read
    /// here, and those that its SendFile and ISendFile want written here. The files that this application
    /// names itself, in whichever operation, are not.
    ///
    /// A request's path, formed as ever, must begin with one of the directories as they are named here (a
    /// relative one is taken from the current directory, at this call), and must not lead out of it through
    /// symbolic links; links that stay inside are followed. ZYLBasFileOps::OpenBeneath resolves it without
    /// a race. The directories are found once, at this call, through links as well.
    ///
    /// A request whose file cannot be opened under these rules, for whatever reason, leaves one line at level
    /// 1; the transfer runs on as for any file that cannot be opened.
    ///
    /// A further call replaces the directories; none refuses every request. Nothing lifts the confinement.
    /// Returns 0, or -1 when a directory cannot be opened: one line at level 1 names it, and the others hold.
    int SetAllowedRoots(const char* const* directories, int count);

  private:
    // The handler calls the private operations for the messages that come in.
    friend class ZYLMsgFileTransferHandler;

    int SendNotifyAndContent(const char* sourceApplication, const char* sourceBaseDir,
                             const char* sourceJobDir, const char* sourceFileName,
                             const char* targetApplication, const char* targetBaseDir,
                             const char* targetJobDir, const char* targetFileName);
    int Send(const char* sourceApplication, const char* sourceBaseDir, const char* sourceJobDir,
             const char* sourceFileName, const char* targetApplication, const char* targetBaseDir,
             const char* targetJobDir, const char* targetFileName);
    int OpenFile(const char* applicationId, const char* fileName, bool isSender);
    int ReadChunk();
    int SendChunk(const char* targetApplication);
    int CloseFile(int fileId);
    int SendSendCompletion(const char* sourceApplication, const char* targetApplication);
    int SendISendCompletion(const char* application);

    int Receive(const char* sourceApplication, const char* sourceBaseDir, const char* sourceJobDir,
                const char* sourceFileName, const char* targetApplication, const char* targetBaseDir,
                const char* targetJobDir, const char* targetFileName);
    int ReceiveChunk(const char* sourceApplication, int chunkId, int chunkSize, const void* data);
    int WriteChunk(const char* sourceApplication, int chunkSize, const void* data);
    int ReceiveSendCompletion(const char* sourceApplication);
    int ReceiveISendCompletion(const char* sourceApplication);
    int SendReceiveCompletion(const char* applicationId);
    int ReceiveReceiveCompletion();

    // Opens the file that another application has named.
    int OpenRequestedFile(const char* applicationId, const char* fileName, bool isSender);
    // A descriptor beneath the innermost allowed directory that the file's name begins with, or -1 with errno
    // set, to EXDEV where there is none.
    int OpenInAllowedRoot(const char* fileName, int flags);
    // Keeps the descriptor also when it is negative: such a file is neither read, written nor closed.
    int KeepFile(const char* applicationId, const char* fileName, bool isSender, int fileId);
    using Opener = int (ZYLMsgFileTransfer::*)(const char*, const char*, bool);
    int SendContent(Opener open, const char* sourceApplication, const char* sourceBaseDir,
                    const char* sourceJobDir, const char* sourceFileName, const char* targetApplication,
                    const char* targetBaseDir, const char* targetJobDir, const char* targetFileName);
    void CloseAllowedRoots();

    // A file being received of which no failed write was reported yet.
    struct UnreportedFile {
        ZYLString m_path;
        int m_openError = 0;  // why it could not be opened, as errno; 0 when it is open
    };
    void ReportFailedWrite(const ZYLString& sourceApplication, int writeError);

    // Writes to the log stream, if there is one and the verbosity reaches `level`.
    [[gnu::format(printf, 3, 4)]] void Log(int level, const char* format, ...) const;
    void Flush(int level) const;
    bool IsLogged(int level) const;

    int m_communicatorId;
    int m_fileId = -1;                           // the file being sent; -1 when there is none
    ZYLBasMap<ZYLString, int> m_receiveFileMap;  // source application to descriptor
    int m_maxChunkSize = 65536;
    ZYLMsgFileTransferType* m_contentMsg;  // owned; carries every chunk sent, its m_chunk is our buffer
    ZYLBasMap<ZYLString, int> m_receiveFileChunkIdMap;  // source application to the last chunk's number
    int m_endingCondition = -1;
    FILE* m_logStream;
    int m_verbosity;
    ZYLBasMap<ZYLString, UnreportedFile> m_unreportedFileMap;  // by source application
    bool m_isConfined = false;
    ZYLBasMap<ZYLString, int> m_allowedRoots;  // absolute name to descriptor
};

#endif
