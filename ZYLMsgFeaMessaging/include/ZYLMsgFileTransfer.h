#ifndef ZYLMSGFILETRANSFER_H
#define ZYLMSGFILETRANSFER_H

#include <cstdio>
#include <string>

#include "ZYLBasMap.h"
#include "ZYLMsgFileTransferOutcome.h"
#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

class ZYLMsgFileTransferHandler;
class ZYLMsgFileTransferType;

/// Copies files between applications, byte for byte, in numbered chunks of at most 65536 bytes.
///
/// Setup: each application that takes part makes one engine and registers a ZYLMsgFileTransferHandler for
/// it at the callback manager, with a ZYLMsgFileTransferType as the prototype. The engine must outlive
/// that registration and is used only on the thread on which the handlers run. An engine serves one
/// communicator, so an application that transfers files in two domains needs two engines. Because a
/// message type has one handler, that application registers a handler of its own, which passes each
/// message to the ZYLMsgFileTransferHandler of the engine in whose domain the sender is.
///
/// Identifier: the message identifier of an application (ZYLMsgBBCallbackManager::SetMessageID) must equal
/// the name under which it is the source application of a transfer. Chunks and completions carry no name;
/// the receiver assigns them to a file by the identifier they arrive with, and ends with a fatal error if
/// it has no open file for that identifier.
///
/// Concurrency: an engine sends one file at a time. It receives from any number of source applications at
/// once, one file from each; a second file from the same source is a fatal error at the receiver.
///
/// Waits: all waits of an engine share one ending condition. The end of any reception, and any
/// confirmation, ends the current wait, whichever transfer it belongs to. If it belongs to another
/// transfer, LastOutcome says that the caller's own transfer has not ended yet. That transfer continues:
/// its file stays open until the source's completion is handled, and another ReceiveFile from that source
/// before then is the fatal error of a second file. ZYLMsgBBAPI::WaitingLoop lets it end, after which
/// LastOutcome reports it.
///
/// Confirmations name no file. A confirmation counts for the oldest SendFile that waits for its sender. If
/// no SendFile waits for that identifier, the confirmation counts for the oldest SendFile of all, because
/// the identifier of a target may differ from its name; but not if the sender is known to be another
/// application, from which a file is being received or for which a wait is open. An application that sends
/// unsolicited confirmations can therefore make a failed SendFile look successful.
///
/// Arguments: a null name or directory counts as the empty text. If the three names of a file are longer
/// than 64 KiB together, the file cannot be opened.
///
/// Errors: every operation returns 0. If the source cannot be opened or read, the copy is empty or short;
/// if the target cannot be opened or written, the copy is missing or damaged. The transfer runs to its end
/// either way, and LastOutcome reports the failure on both sides. Violations of the protocol (a chunk out
/// of sequence, a chunk without bytes, a completion without an open file) are fatal errors. When a chunk
/// or completion comes from an application that has no file open, or a second file from one that has, a
/// line on standard error names the likely causes. In a process with a file size limit (RLIMIT_FSIZE), a
/// failed write becomes an outcome only if the process ignores SIGXFSZ; otherwise that signal ends the
/// process.
///
/// Memory: the engine's memory does not grow with the files. The backbone's may: if two applications call
/// SendFile for each other at once, both send before they read, and the backbone keeps the incoming
/// messages in memory, up to the size of the files.
///
/// Source files are held (ZYLBasFileOps::Hold) while they are sent: no engine opens a held file as a
/// target, by whatever name, so a file that is sent onto itself keeps its bytes. SendFile holds the file
/// until it returns; however, after sending all of it, it lets another application's file replace it, so
/// that two applications can exchange a file. After ISendFile the receiver may overwrite a short source
/// file with its own bytes, because all of it is already under way. There is no hold on file systems
/// without locks, on files that another program has locked exclusively, or when this process is out of
/// descriptors. A hold ends with its process even if messages are still under way, and it does not
/// restrict other programs.
///
/// Target files are not held: if two sources send to one target file at once, both write it from its
/// start, and the copy is a mixture although both outcomes are ok. The applications must send one after
/// the other.
///
/// Diagnostics go to the log stream. Level 1 is the course of a transfer and the first failed write of
/// each file; level 4 is each chunk, each opened file and the reports of the other side. A verbosity of n
/// writes levels 1 to n. Independently of the verbosity, one line on standard error reports the first
/// failure of each file that this application opens, reads or writes, and each file that is incomplete
/// because its source was lost. A log stream that is `stderr` does not receive that line twice.
class ZYLMSGMODULES_EXPORT ZYLMsgFileTransfer {
  public:
    /// `logStream` is not owned and must outlive the engine. Without one, lines go to standard error.
    ZYLMsgFileTransfer(int communicatorId, FILE* logStream, int verbosity);

    /// Does not close files that are still being received.
    ~ZYLMsgFileTransfer();

    ZYLMsgFileTransfer(const ZYLMsgFileTransfer&) = delete;
    ZYLMsgFileTransfer& operator=(const ZYLMsgFileTransfer&) = delete;

    /// Sends a file and waits until the receiver confirms that it has closed the copy. LastOutcome tells
    /// whether the copy is whole.
    ///
    /// The wait has no time limit. If the target is lost, the wait ends only if a disconnect handler calls
    /// ApplicationLost. If the target is not there when the completion is sent, the call does not wait,
    /// but delivers pending messages and loss reports before it returns.
    ///
    /// The file is read from ZYLMsgPathExplorer::FormPath of the three source strings here, and written to
    /// FormPath of the three target strings there (created with mode 0640, or emptied).
    int SendFile(const char* sourceApplication, const char* sourceBaseDir, const char* sourceJobDir,
                 const char* sourceFileName, const char* targetApplication, const char* targetBaseDir,
                 const char* targetJobDir, const char* targetFileName);

    /// Sends a file like SendFile, but returns after its last message is sent. LastOutcome then covers
    /// only this side: whether the file was read and the target was there.
    int ISendFile(const char* sourceApplication, const char* sourceBaseDir, const char* sourceJobDir,
                  const char* sourceFileName, const char* targetApplication, const char* targetBaseDir,
                  const char* targetJobDir, const char* targetFileName);

    /// Requests a file from the source application and waits until the copy is written here and closed.
    ///
    /// The wait has no time limit, as in SendFile. `targetApplication` is this application; the other
    /// strings are those of SendFile.
    ///
    /// The target is emptied before the request is sent. If source and target are the same file, its bytes
    /// are lost. The engine refuses this, with an outcome that says so, only if it knows that the source
    /// application belongs to this process: it has the process's message identifier, or is the target
    /// application. For other processes it cannot tell, because the same path may name another file there.
    int ReceiveFile(const char* sourceApplication, const char* sourceBaseDir, const char* sourceJobDir,
                    const char* sourceFileName, const char* targetApplication, const char* targetBaseDir,
                    const char* targetJobDir, const char* targetFileName);

    /// The outcome of the transfer that ended last in this engine: after SendFile, ISendFile and
    /// ReceiveFile their own, otherwise that of a transfer that another application requested. Successful
    /// before the first transfer. The text may quote the other side, escaped and truncated after about
    /// 5000 bytes.
    const ZYLMsgFileTransferOutcome& LastOutcome() const;

    /// A disconnect handler calls this with the name of each lost application. The engine closes the file
    /// that it was receiving from the application and reports it as incomplete, so that a new life of the
    /// application can send again. A SendFile or ReceiveFile that waits for the application ends with that
    /// outcome. Without this call the next file from that name is a fatal error, and the waits continue.
    /// Returns 0.
    int ApplicationLost(const char* application);

    /// Sets the communicator for all further messages and waits. Returns 0.
    int SetCommunicatorId(int communicatorId);

    /// Confines the requests of other applications to files in and below `count` directories. Without this
    /// call they can name any file that this process may open.
    ///
    /// The confinement applies to incoming requests: to files that another application's ReceiveFile reads
    /// here, and to files that its SendFile and ISendFile write here. It also applies if this application
    /// sends to itself. It does not apply to the files that this application names in its own calls.
    ///
    /// The path of a request must begin with one of the directories as they are named here (a relative one
    /// is resolved against the current directory of this call), and must not leave it through symbolic
    /// links; links that stay inside are followed. ZYLBasFileOps::OpenBeneath resolves the path without a
    /// race. The directories themselves are opened once, in this call, and may be reached through links.
    ///
    /// If a requested file cannot be opened under these rules, one line at level 1 and on standard error
    /// reports it, and the transfer continues as with any file that cannot be opened.
    ///
    /// Another call replaces the directories; a `count` of 0 refuses every request. The confinement cannot
    /// be lifted. Returns 0, or -1 if a directory cannot be opened: one line at level 1 names it, and the
    /// other directories are in force.
    int SetAllowedRoots(const char* const* directories, int count);

  private:
    // The handler calls the private operations for incoming messages.
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
    // Opens the file beneath the innermost allowed directory that its name begins with. Returns -1 with
    // errno set on failure; EXDEV means that there is no such directory.
    int OpenInAllowedRoot(const char* fileName, int flags);
    // Opens a file that another application has named, in order to hold it. Returns a descriptor or -1.
    int OpenToHold(const char* fileName);
    // Opens the target of a ReceiveFile, unless it is known to be the source.
    void OpenOwnTarget(const char* sourceApplication, const ZYLString& source, const char* targetApplication,
                       const ZYLString& target);
    // Registers an opened file. A negative descriptor is registered too, with the reason; such a file is
    // neither read, written nor closed.
    int KeepFile(const char* applicationId, const char* fileName, bool isSender, int fileId,
                 const std::string& failure);
    using Opener = int (ZYLMsgFileTransfer::*)(const char*, const char*, bool);
    int SendContent(Opener open, const char* sourceApplication, const char* sourceBaseDir,
                    const char* sourceJobDir, const char* sourceFileName, const char* targetApplication,
                    const char* targetBaseDir, const char* targetJobDir, const char* targetFileName);
    void CloseAllowedRoots();

    // A file being received.
    struct Reception {
        ZYLString m_path;
        ZYLMsgFileTransferOutcome m_outcome;
        bool m_isFailureLogged = false;
    };
    void ReportFailedWrite(Reception& reception, int writeError);
    void EndReception(const ZYLString& sourceApplication);
    void ExplainNoOpenFile(const char* what, const char* sourceApplication) const;

    // Record the failure that the other side reports in a completion, "" for none. The handler calls them
    // before the operation that answers the completion.
    void NoteSourceFailure(const char* sourceApplication, const char* failure);
    void NoteConfirmation(const char* targetApplication, const char* failure);

    enum class Awaited { kConfirmation, kFile };
    struct Wait;
    // The oldest wait that is not over; a null application matches every wait.
    Wait* OldestWait(Awaited awaited, const ZYLString* application) const;
    // Whether a file is being received from the application, or a wait is open for it.
    bool IsKnown(const ZYLString& application) const;
    // Releases the held files of every SendFile that has sent all of its file, so that a file of another
    // application may replace them.
    void ReleaseSentFiles(const char* sourceApplication) const;

    // Logs a failure that was already written to standard error.
    void LogFailure(const char* text) const;
    // Writes to the log stream, if there is one and the verbosity reaches `level`.
    [[gnu::format(printf, 3, 4)]] void Log(int level, const char* format, ...) const;
    void Flush(int level) const;
    bool IsLogged(int level) const;

    int m_communicatorId;
    int m_fileId = -1;                           // the file being sent; -1 when there is none
    ZYLBasMap<ZYLString, int> m_receiveFileMap;  // source application to descriptor
    int m_maxChunkSize = 65536;
    ZYLMsgFileTransferType* m_contentMsg;  // owned; carries every chunk sent; its m_chunk is the read buffer
    ZYLBasMap<ZYLString, int> m_receiveFileChunkIdMap;  // source application to the last chunk's number
    int m_endingCondition = -1;
    FILE* m_logStream;
    int m_verbosity;
    ZYLBasMap<ZYLString, Reception> m_receptionMap;  // by source application, like the two tables above
    bool m_isConfined = false;
    ZYLBasMap<ZYLString, int> m_allowedRoots;  // absolute name to descriptor
    ZYLMsgFileTransferOutcome m_lastOutcome;   // while a file is being sent, its outcome so far
    Wait* m_innermostWait = nullptr;
    // Target application to the number of confirmations still expected for SendFile calls that have
    // returned.
    ZYLBasMap<ZYLString, int> m_lateConfirmationMap;
};

#endif
