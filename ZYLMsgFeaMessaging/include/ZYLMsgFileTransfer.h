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
/// Each application that takes part makes one engine, and registers a ZYLMsgFileTransferHandler for it, with
/// a ZYLMsgFileTransferType as its prototype, at the callback manager. The engine must outlive that
/// registration. It is used on one thread, the one on which the handlers run. It serves one communicator:
/// an application that transfers files in two domains needs two engines. A type has one handler, so it then
/// registers one of its own, which passes each message on to the ZYLMsgFileTransferHandler of the engine in
/// whose domain the sender is.
///
/// Its memory does not grow with the files. The backbone's does where nobody reads: two applications that
/// call SendFile for each other at once both send before they read, and what has come meanwhile waits in
/// memory, up to the size of the files.
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
/// the wait that is on, whichever transfer it was for. Where it was another one's, LastOutcome says that the
/// own one had not ended yet. It goes on: its file stays open here until the source's completion is handled,
/// and another ReceiveFile from that source before then is the fatal error of two files at once. Waiting in
/// ZYLMsgBBAPI::WaitingLoop lets it end; LastOutcome tells of it then.
///
/// A confirmation names no file. It counts for the SendFile that waits longest for its sender; where there is
/// none, for the one that waits longest, because the identifier of a target need not be its name, unless its
/// sender is known to be another application: a file is being received from it, or a wait is for it. So an
/// application that sends confirmations nobody asked for can make a failed SendFile look done.
///
/// A name or directory that is null is the empty text. Names that have more than 64 KiB together, the three
/// of a file, are a file name that is too long.
///
/// Every operation returns 0. A source that cannot be opened or read gives an empty or short copy; a target
/// that cannot be opened or written gives none or a damaged one; the transfer runs to its end either way, and
/// LastOutcome tells both sides. Broken rules of the protocol (a chunk out of sequence, a chunk without
/// bytes, a completion for no file) are fatal errors; a line on standard error says what to look for when a
/// chunk or a completion comes from an application that has no file open, or a second file from one that has.
///
/// A process whose files may not grow beyond a limit (RLIMIT_FSIZE) must ignore SIGXFSZ to get a failed write
/// as an outcome; otherwise the system ends it with that signal.
///
/// A source file is held while it is sent: meanwhile no engine that reaches it, by whatever name, opens it as
/// a target, so that a file that is sent onto itself keeps its bytes. SendFile holds it until it returns;
/// once all of it is sent, a file that another application sends to this engine may replace it all the same,
/// so that two applications can exchange a file. After ISendFile the receiver may still write a short file,
/// all of which is on its way, with its own bytes. Nothing is held where the file system has no locks, where
/// another program has locked the file for itself alone, and where this process has no descriptor left for
/// it. A hold ends with its process, also when messages with the file are still on their way; and other
/// programs are not kept from the file.
///
/// A target is not held: two sources that send to one target file at once both write it, each from its start,
/// and the copy is a mixture though both outcomes are ok. One of them must wait for the other.
///
/// Diagnostics go to the log stream: the course of a transfer and the first failed write of each file at
/// level 1, each chunk, each file opened and what the other side reports at level 4. A verbosity of n writes
/// the lines of the levels up to n. The first failure of each file that this application opens, reads or
/// writes, and a file that is incomplete because its source was lost, are a line on standard error at once,
/// whatever the verbosity; a log stream that is `stderr` does not get that line twice.
class ZYLMSGMODULES_EXPORT ZYLMsgFileTransfer {
  public:
    /// `logStream` is not owned and must outlive the engine. Without one, lines go to standard error.
    ZYLMsgFileTransfer(int communicatorId, FILE* logStream, int verbosity);

    /// Leaves the files that are still being received open.
    ~ZYLMsgFileTransfer();

    ZYLMsgFileTransfer(const ZYLMsgFileTransfer&) = delete;
    ZYLMsgFileTransfer& operator=(const ZYLMsgFileTransfer&) = delete;

    /// Sends a file and waits until the receiver confirms that it has closed the copy, whole or not:
    /// LastOutcome tells.
    ///
    /// The wait has no bound. It ends with the target only where a disconnect handler calls ApplicationLost.
    /// There is no wait where the target is not there when the end of the file is sent; the reports that have
    /// come are delivered then.
    ///
    /// The file is read from ZYLMsgPathExplorer::FormPath of the three source strings here, and written to
    /// FormPath of the three target strings there (created with mode 0640, or emptied).
    int SendFile(const char* sourceApplication, const char* sourceBaseDir, const char* sourceJobDir,
                 const char* sourceFileName, const char* targetApplication, const char* targetBaseDir,
                 const char* targetJobDir, const char* targetFileName);

    /// Sends a file like SendFile, and returns as soon as its last message is sent. LastOutcome then speaks
    /// of this side alone: the file was read, and sent to somebody.
    int ISendFile(const char* sourceApplication, const char* sourceBaseDir, const char* sourceJobDir,
                  const char* sourceFileName, const char* targetApplication, const char* targetBaseDir,
                  const char* targetJobDir, const char* targetFileName);

    /// Asks the source application for a file and waits until the copy is written here and closed.
    ///
    /// The wait has no bound, as that of SendFile. `targetApplication` is this application; the other strings
    /// are those of SendFile.
    ///
    /// The copy is emptied before the source is asked, so a source file that is the target file itself has
    /// lost its bytes when it is read. This is refused, with its outcome, only where the source application
    /// is known to be of this process: it has the process's message identifier, or is the target application.
    /// Elsewhere nothing can be seen: the same path may name another file there.
    int ReceiveFile(const char* sourceApplication, const char* sourceBaseDir, const char* sourceJobDir,
                    const char* sourceFileName, const char* targetApplication, const char* targetBaseDir,
                    const char* targetJobDir, const char* targetFileName);

    /// How the transfer ended that ended last here: after SendFile, ISendFile and ReceiveFile theirs; else,
    /// a file that came or went at another application's request. It is good before the first one. The text
    /// may hold words of the other side, escaped and cut after some 5000 bytes.
    const ZYLMsgFileTransferOutcome& LastOutcome() const;

    /// For a disconnect handler, which calls it with the name of each application that is reported lost. A
    /// file that was being received from it is closed and reported as incomplete, so that a new life of the
    /// application can send again; a SendFile or ReceiveFile that waits for it ends, with that outcome.
    /// Without this call the next file from that name is a fatal error, and the wait goes on. Returns 0.
    int ApplicationLost(const char* application);

    /// Lets the next message and the next wait use another communicator.
    int SetCommunicatorId(int communicatorId);

    /// Restricts what other applications may have read or written here to files in `count` directories and
    /// below them. Without this call any file that this process may open is theirs to name.
    ///
    /// Confined are the requests that come in: the files that a ReceiveFile of another application wants read
    /// here, and those that its SendFile and ISendFile want written here; also where that application is this
    /// one, which sends to itself. The files that this application names itself, in whichever operation, are
    /// not.
    ///
    /// A request's path, formed as ever, must begin with one of the directories as they are named here (a
    /// relative one is taken from the current directory, at this call), and must not lead out of it through
    /// symbolic links; links that stay inside are followed. ZYLBasFileOps::OpenBeneath resolves it without
    /// a race. The directories are found once, at this call, through links as well.
    ///
    /// A request whose file cannot be opened under these rules, for whatever reason, leaves one line at level
    /// 1 and on standard error; the transfer runs on as for any file that cannot be opened.
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
    // A descriptor with which a file that another application has named can be held, or -1.
    int OpenToHold(const char* fileName);
    // Opens the target of a ReceiveFile, unless it can be seen to be the source.
    void OpenOwnTarget(const char* sourceApplication, const ZYLString& source, const char* targetApplication,
                       const ZYLString& target);
    // Keeps the descriptor also when it is negative, with the reason: such a file is neither read, written
    // nor closed.
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

    // What a completion says of the other side: why the copy is not whole, or "". The handler calls them
    // before the operation that answers the completion.
    void NoteSourceFailure(const char* sourceApplication, const char* failure);
    void NoteConfirmation(const char* targetApplication, const char* failure);

    enum class Awaited { kConfirmation, kFile };
    struct Wait;
    // The first one begun of those that are not over; with null for any application.
    Wait* OldestWait(Awaited awaited, const ZYLString* application) const;
    // Whether a file comes from the application, or a wait is for it.
    bool IsKnown(const ZYLString& application) const;
    // Lets go what SendFile has sent already and another application may therefore write.
    void ReleaseSentFiles(const char* sourceApplication) const;

    // A failure that stands on standard error already.
    void LogFailure(const char* text) const;
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
    ZYLBasMap<ZYLString, Reception> m_receptionMap;  // by source application, as the two tables
    bool m_isConfined = false;
    ZYLBasMap<ZYLString, int> m_allowedRoots;  // absolute name to descriptor
    ZYLMsgFileTransferOutcome m_lastOutcome;   // of a file being sent so far, too
    Wait* m_innermostWait = nullptr;
    // Target application to the number of confirmations that are still to come for a SendFile that has
    // returned.
    ZYLBasMap<ZYLString, int> m_lateConfirmationMap;
};

#endif
