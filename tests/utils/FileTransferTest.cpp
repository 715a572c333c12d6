// The protocol of a file transfer between engines of one process, and what other applications may reach of
// an engine's files.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <tuple>

#include "FakeBackbone.h"
#include "MemoryStream.h"
#include "TemporaryDirectory.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

using Operation = int (ZYLMsgFileTransfer::*)(const char*, const char*, const char*, const char*, const char*,
                                              const char*, const char*, const char*);
constexpr Operation kSendFile = &ZYLMsgFileTransfer::SendFile;
constexpr Operation kISendFile = &ZYLMsgFileTransfer::ISendFile;
constexpr Operation kReceiveFile = &ZYLMsgFileTransfer::ReceiveFile;

void Write(const std::string& path, const std::string& bytes) {
    std::ofstream(path) << bytes;
}

std::string Read(const std::string& path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path).rdbuf();
    return bytes.str();
}

/// Bytes in which no two chunks are alike.
std::string Pattern(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 131 + i / 251);
    }
    return bytes;
}

std::ptrdiff_t OpenDescriptors() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

/// An application: its engine, handler and log, and the base directory in which its job lies.
struct Application {
    Application(const std::string& base, int verbosity) : m_base(base), m_engine(9, m_log.Get(), verbosity) {
        m_engine.SetCommunicatorId(1);
        fs::create_directories(base + "/job");
    }
    bool IsIdle() const {
        return m_engine.m_fileId == -1 && m_engine.m_contentMsg->Data().m_chunkId == 0 &&
               m_engine.m_receiveFileMap.size() == 0 && m_engine.m_receiveFileChunkIdMap.size() == 0 &&
               m_engine.m_receptionMap.size() == 0;
    }

    std::string m_base;
    MemoryStream m_log;
    ZYLMsgFileTransfer m_engine;
    ZYLMsgFileTransferHandler m_handler{&m_engine};
};

/// Several applications in one process. Messages pass through the callback manager, in the order sent, while
/// an engine waits and in Deliver; what an application sends bears its name.
class FileTransfer : public testing::Test {
  public:
    FileTransfer() {
        m_backbone = {};
        m_backbone.onSend = [this](const FakeBackbone::Message& message) {
            m_backbone.script.push_back([this, message] { Dispatch(message); });
        };
        ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType, new Dispatcher(*this));
        Add("S");
        Add("T");
    }
    ~FileTransfer() override { ZYLMsgBBCallbackManager emptiesTheRegistries; }

  protected:
    struct Dispatcher : ZYLMsgBBMessageHandler {
        explicit Dispatcher(FileTransfer& test) : m_test(test) {}
        void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
            m_test.m_receiver->m_handler.HandleMessage(message, id);
        }
        FileTransfer& m_test;
    };

    /// A new life of the application, with an empty log.
    Application& Add(const std::string& name, int verbosity = 0) {
        return *(m_applications[name] = std::make_unique<Application>(m_directory / name, verbosity));
    }

    void Dispatch(const FakeBackbone::Message& message) {
        const ZYLString before = ZYLMsgBBCallbackManager::m_messageID;
        m_receiver = m_applications.at(message.target).get();
        ZYLMsgBBCallbackManager::SetMessageID(message.target.c_str());
        ZYLMsgBBCallbackManager::HandleMessage(message.type.c_str(), message.bytes.data(),
                                               static_cast<int>(message.bytes.size()));
        ZYLMsgBBCallbackManager::m_messageID = before;
    }

    void Deliver() {
        for (; !m_backbone.script.empty(); m_backbone.script.pop_front()) {
            m_backbone.script.front()();
        }
    }

    /// Has the engine of the application `runner` copy a file from the job of `source` to the job of `target`.
    void Copy(Operation operation, const std::string& runner, const std::string& source,
              const std::string& in, const std::string& target, const std::string& out) {
        ZYLMsgBBCallbackManager::SetMessageID(runner.c_str());
        ZYLMsgFileTransfer& engine = m_applications.at(runner)->m_engine;
        EXPECT_EQ((engine.*operation)(source.c_str(), (m_directory / source).c_str(), "job", in.c_str(),
                                      target.c_str(), (m_directory / target).c_str(), "job", out.c_str()),
                  0);
    }

    /// Copies the file `in` of S's job to `out` of T's and delivers what is under way.
    void Run(Operation operation, const std::string& in = "in", const std::string& out = "out") {
        Copy(operation, operation == kReceiveFile ? "T" : "S", "S", in, "T", out);
        EXPECT_TRUE(operation == kISendFile || m_backbone.script.empty()) << "returned before the end";
        Deliver();
        EXPECT_TRUE(m_applications.at("S")->IsIdle() && m_applications.at("T")->IsIdle());
    }
    std::string In() const { return m_directory / "S/job/in"; }
    std::string Out() const { return m_directory / "T/job/out"; }

    /// The messages sent since the last call, each as "<target>:<code>", with its names in brackets and with
    /// "#<number>x<size>" for a chunk.
    std::string TakeSteps() {
        std::string steps;
        for (const auto& [communicator, target, type, bytes] : m_backbone.sent) {
            EXPECT_EQ(communicator, 1);
            ZYLMsgFileTransferType message;
            constexpr int kHead = 5;  // identifiers have one byte
            message.Unstream(bytes.data() + kHead, static_cast<int>(bytes.size()) - kHead);
            const ZYLMsgFileTransferData& data = message.Data();
            std::string names;
            for (const ZYLString& name : {data.m_sourceApplication, data.m_sourceBaseDir, data.m_sourceJobDir,
                                          data.m_sourceFileName, data.m_targetApplication,
                                          data.m_targetBaseDir, data.m_targetJobDir, data.m_targetFileName}) {
                names += Bare(name.GetUTF8()) + ' ';
            }
            steps += fmt::format("{}:{}", target, data.m_dataType);
            steps += names == std::string(8, ' ') ? "" : fmt::format("[{}]", names);
            const bool isChunk = data.m_chunkId != -1 || data.m_chunkSize != 0;
            steps += isChunk ? fmt::format("#{}x{} ", data.m_chunkId, data.m_chunkSize) : " ";
        }
        m_backbone.sent.clear();
        return steps;
    }

    /// A text without the test's directory.
    std::string Bare(const std::string& text) const {
        return std::regex_replace(text, std::regex(m_directory.Path().string()), "");
    }

    /// What an application's engine says of its last transfer: "ok" or the failure, and the bytes.
    std::string Outcome(const std::string& name) const {
        const auto& [ok, text, bytes] = m_applications.at(name)->m_engine.LastOutcome();
        EXPECT_EQ(ok, text.IsEmpty());
        return fmt::format("{} after {}", ok ? "ok" : Bare(text.GetUTF8()), bytes);
    }

    /// An application's log without the test's directory.
    std::string Log(const std::string& name) { return Bare(m_applications.at(name)->m_log.Text()); }

    const TemporaryDirectory m_directory;
    FakeBackbone& m_backbone = FakeBackbone::Get();
    std::map<std::string, std::unique_ptr<Application>> m_applications;
    Application* m_receiver = nullptr;
};

TEST_F(FileTransfer, EveryFlowCopiesFilesOfEverySizeAndGivesANewCopyItsMode) {
    umask(0);
    const std::ptrdiff_t openBefore = OpenDescriptors();
    const std::string names = "[S /S job in T /T job out ] ";
    const std::pair<size_t, std::string> files[] = {
        {65537, "T:3#1x65536 T:3#2x1 "},      {0, ""}, {1, "T:3#1x1 "}, {65536, "T:3#1x65536 "},
        {131072, "T:3#1x65536 T:3#2x65536 "},
    };
    for (const auto& [size, chunks] : files) {
        Write(In(), Pattern(size));
        for (const Operation flow : {kSendFile, kISendFile, kReceiveFile}) {
            Run(flow);
            const std::string steps = (flow == kReceiveFile ? "S:1" : "T:2") + names + chunks +
                                      (flow == kSendFile ? "T:4[S        ] S:6 " : "T:5 ");
            EXPECT_EQ(TakeSteps(), steps);
            EXPECT_TRUE(Read(Out()) == Pattern(size)) << steps;
        }
    }
    EXPECT_EQ(OpenDescriptors(), openBefore);
    EXPECT_EQ(fs::status(Out()).permissions(), static_cast<fs::perms>(0640));
    // Of the three, ISendFile alone does not wait.
    EXPECT_EQ(m_backbone.calls, std::vector<std::string>(10, "WaitingLoop(1, -1)"));
}

TEST_F(FileTransfer, LogHasTheLinesOfItsLevel) {
    const std::string sent =
        "::Send from application S\nsourceFileName in, targetFileName out\n"
        "sourceBaseDir (/S) ==> targetBaseDir (/T)\nsourceJobDir (job) ==> targetJobDir (job)\n"
        "::SendSendCompletion sourceApplication=S targetApplication=T\n";
    const std::string received =
        "Receive from application S to application T\nsourceFileName in, targetFileName out\n"
        "sourceBaseDir (/S), targetBaseDir (/T)\nsourceJobDir (job), targetJobDir (job)\nopened file out\n"
        "updating chunkId 1 for source Application S\n"
        "::ReceiveISendCompletion sourceApplication=S\n::SendReceiveCompletion applicationId=S\n";
    Write(In(), "abc");
    for (const int verbosity : {0, 1, 3, 4}) {
        Add("S", verbosity);
        Add("T", verbosity);
        Run(kSendFile);
        if (verbosity < 4) {
            EXPECT_EQ(Log("S"), verbosity == 0 ? "" : sent);
            EXPECT_EQ(Log("T"), verbosity == 0 ? "" : received);
        }
    }
    EXPECT_THAT(Log("S"), HasSubstr("::OpenFile applicationId S fileName /S/job/in isSender 1 fileId "));
    EXPECT_THAT(Log("T"), HasSubstr("::ReceiveChunk sourceApplication=S chunkId=1 chunkSize=3\n"));
}

TEST_F(FileTransfer, FilesOfTwoSourcesStaySeparateWhenTheirChunksMix) {
    Add("X");
    Write(In(), Pattern(65537));
    Write(m_directory / "X/job/in", Pattern(131072));
    Copy(kISendFile, "S", "S", "in", "T", "s");
    Copy(kISendFile, "X", "X", "in", "T", "x");
    const auto sent = m_backbone.sent;
    ASSERT_EQ(sent.size(), 8U);
    for (size_t step = 0; step < 4; ++step) {
        Dispatch(sent[step]);
        Dispatch(sent[step + 4]);
    }
    EXPECT_TRUE(Read(m_directory / "T/job/s") == Pattern(65537));
    EXPECT_TRUE(Read(m_directory / "T/job/x") == Pattern(131072));
    EXPECT_TRUE(m_applications.at("T")->IsIdle());
}

TEST_F(FileTransfer, AFailureIsAnOutcomeOfBothSidesAndOneLineOnStandardError) {
    const std::string missing = "No such file or directory";
    const struct {
        std::string atFault, failure;
        std::function<void()> arrange;
    } cases[] = {
        {"S", "cannot open file /S/job/in: " + missing, [&] { fs::remove(In()); }},
        // It opens, and fails to be read at its start.
        {"S", "cannot read all of file /S/job/in: Input/output error",
         [&] { fs::remove(In()), fs::create_symlink("/proc/self/mem", In()); }},
        {"T", "cannot open file /T/job/out: " + missing, [&] { fs::remove_all(m_directory / "T/job"); }},
    };
    for (const auto& [atFault, failure, arrange] : cases) {
        for (const Operation flow : {kSendFile, kISendFile, kReceiveFile}) {
            Add("S");
            Add("T");
            fs::remove(In());
            Write(In(), Pattern(200'000));
            Write(Out(), "old");
            arrange();
            testing::internal::CaptureStderr();
            Run(flow);
            EXPECT_EQ(Bare(testing::internal::GetCapturedStderr()), "ZYLMsgFileTransfer: " + failure + "\n");
            const bool isSource = atFault == "S";
            EXPECT_EQ(Outcome("S"), isSource            ? failure + " after 0"
                                    : flow == kSendFile ? "T reports: " + failure + " after 200000"
                                                        : "ok after 200000");
            EXPECT_EQ(Outcome("T"),
                      (isSource ? "file /T/job/out is not whole: S reports: " : "") + failure + " after 0");
            EXPECT_EQ(Read(Out()), "");
        }
    }
}

TEST_F(FileTransfer, AFileSentOntoItselfKeepsItsBytes) {
    Write(In(), "abc");
    fs::create_symlink(In(), Out());
    Run(kSendFile);
    EXPECT_EQ(Outcome("S"),
              "T reports: cannot open file /T/job/out: it is being sent, or locked by another program, and "
              "keeps its bytes after 3");
    EXPECT_EQ(Read(In()), "abc");
}

TEST_F(FileTransfer, WordsOfTheOtherSideAreEscapedAndBounded) {
    ZYLMsgFileTransfer& engine = m_applications.at("T")->m_engine;
    engine.Receive("S", "", "", "", "T", (m_directory / "T").c_str(), "", "out");
    engine.NoteSourceFailure("S", ("\n\x1B[2J\\\\x07" + std::string(1 << 20, 'x')).c_str());
    engine.ReceiveISendCompletion("S");
    EXPECT_THAT(Outcome("T"), HasSubstr("/out is not whole: S reports: \\x0a\\x1b[2J\\\\x07xxx"));
    EXPECT_LT(Outcome("T").size(), 6000U);
}

TEST_F(FileTransfer, AWaitThatAnotherTransferEndsDoesNotLookDone) {
    Write(In(), "old");
    Write(m_directory / "T/job/new", "new");
    Copy(kISendFile, "T", "T", "new", "S", "in");
    const std::string ended =
        "the wait ended with another transfer, before application T had confirmed the copy";
    // The wait for the second confirmation ends with the first one.
    for (const std::string& outcome : {ended, ended, std::string("ok")}) {
        Copy(kSendFile, "S", "S", "in", "T", "out");
        EXPECT_EQ(Outcome("S"), outcome + " after 3");
        EXPECT_EQ(Read(In()), "new");
        if (outcome == ended && Read(Out()) == "new") {
            Deliver();
        }
    }
    EXPECT_EQ(Read(Out()), "new");
}

TEST_F(FileTransfer, ALostOrAbsentApplicationEndsWhatWaitsForItAndMayComeBack) {
    Write(In(), "abc");
    const auto onSend = m_backbone.onSend;
    const std::string unconfirmed = "application T was lost before it confirmed the copy after 3";
    const std::string incomplete =
        "file /T/job/out is incomplete: application S was lost after 0 bytes were written after 0";
    enum Loss { kBeforeTheWait, kInTheWait, kAtTheStart };
    const std::tuple<Operation, Loss, std::string> cases[] = {
        {kSendFile, kInTheWait, unconfirmed},
        {kSendFile, kBeforeTheWait, unconfirmed},
        {kSendFile, kAtTheStart, "application T was not there after 0"},
        {kReceiveFile, kInTheWait, incomplete},
        {kReceiveFile, kBeforeTheWait, incomplete},
        {kReceiveFile, kAtTheStart, "application S was not there after 0"},
    };
    for (const auto& [flow, loss, outcome] : cases) {
        SCOPED_TRACE(outcome);
        const auto& [runner, lost] = flow == kSendFile ? std::pair("S", "T") : std::pair("T", "S");
        const auto lose = [&, runner = runner, lost = lost] {
            m_applications.at(runner)->m_engine.ApplicationLost(lost);
        };
        m_backbone.isAnybodyThere = loss != kAtTheStart;
        m_backbone.onSend = [&, loss = loss](const FakeBackbone::Message&) {
            loss == kInTheWait ? m_backbone.script.assign(1, lose) : lose();
        };
        Run(flow);
        EXPECT_EQ(Outcome(runner), outcome);
        m_backbone.isAnybodyThere = true;
        m_backbone.onSend = onSend;
        Run(flow);
        EXPECT_EQ(Outcome("T"), "ok after 3");
    }
}

TEST_F(FileTransfer, BrokenProtocolEndsTheReceiver) {
    const std::string path = m_directory / "T";
    const char* base = path.c_str();
    ZYLMsgFileTransfer engine(1, stderr, 4);  // not buffered: these lines are not flushed
    engine.Receive("S", base, "", "in", "T", base, "", "out");
    engine.ReceiveChunk("S", 1, 1, "a");
    const std::string sequence = "obtained incorrect file chunk during remote file copy";
    const struct {
        std::function<void()> breach;
        std::string line, fatal;
    } cases[] = {
        {[&] { engine.Receive("S", base, "", "in", "T", base, "", "other"); },
         "file opened for application S\n.*second file from 'S' begins, .*/other, while its file .*/out is",
         "itr == m_receiveFileMap.end\\(\\)"},
        {[&] { engine.ReceiveChunk("S", 3, 1, "c"); }, "chunk from S, expected 1 got 2\n", sequence},
        {[&] { engine.ReceiveChunk("S", 2, 0, nullptr); }, "chunkId=2 chunkSize=0\n", "chunkSize > 0"},
        {[&] { engine.ReceiveChunk("X", 1, 1, "a"); },
         "havent initialized the file for app: X\n.*a chunk came from 'X', but no file .* [(]open: 'S'[)]",
         "[*]{2}ERROR[*]{2}, cannot write this chunk since we havent initialized the file for app"},
        {[&] { engine.ReceiveISendCompletion("X"); },
         "cannot find file for sourceApplication\n.*a completion came from 'X'",
         "itr != m_receiveFileMap.end\\(\\)"},
    };
    for (const auto& [breach, line, fatal] : cases) {
        EXPECT_DEATH(breach(), line + ".*AssertionFailed:.*" + fatal + ".*/src/ZYLMsgFileTransfer:");
    }
}

/// One of the applications S and T allows the others a directory. Links lead to the job of each from beside
/// and from within.
class ConfinedFileTransfer : public FileTransfer {
  protected:
    ConfinedFileTransfer() {
        for (const char* name : {"S", "T"}) {
            const std::string base = m_directory / name;
            for (const char* made : {"/job/inside", "/other", "/job-2"}) {
                fs::create_directory(base + made);
            }
            fs::create_directory_symlink("job", base + "/link");
            fs::create_directory_symlink("../other", base + "/job/out-of-it");
            fs::create_directory_symlink("inside", base + "/job/within-it");
        }
    }

    int Allow(const std::string& name, const std::vector<std::string>& roots) {
        std::vector<const char*> pointers;
        for (const std::string& root : roots) {
            pointers.push_back(root.c_str());
        }
        return m_applications.at(name)->m_engine.SetAllowedRoots(pointers.data(),
                                                                 static_cast<int>(pointers.size()));
    }
};

TEST_F(ConfinedFileTransfer, OthersReachOnlyWhatLiesInTheAllowedDirectories) {
    const struct {
        std::string root, path;
        bool isAllowed;
    } cases[] = {
        {"/job/", "inside/f", true},
        {"/job", "within-it/f", true},
        {"", "f", true},
        {"/link", "../link/f", true},
        {"/job", "../other/f", false},
        {"/job", "../job-2/f", false},
        {"/link", "f", false},
        {"/job", "out-of-it/f", false},
        {"/job", "../link/f", false},
        {"/other", "out-of-it/f", false},
    };
    for (const auto& [root, path, isAllowed] : cases) {
        for (const std::string confined : {"S", "T"}) {
            SCOPED_TRACE(fmt::format("{}{} {}", confined, root, path));
            Add("S", 1);
            Add("T", 1);
            EXPECT_EQ(Allow(confined, {m_directory / confined + root}), 0);
            const bool isSource = confined == "S";
            const std::string file = fs::path(m_directory / confined + "/job") / path;
            const std::string copy = isSource ? Out() : file;
            Write(isSource ? file : In(), "copied");
            Write(copy, "kept");
            isSource ? Run(kReceiveFile, path, "out") : Run(kSendFile, "in", path);
            EXPECT_EQ(Read(copy), isAllowed ? "copied" : isSource ? "" : "kept");
            EXPECT_EQ(
                Log(confined).find(isSource ? "refused to read" : "refused to write") == std::string::npos,
                isAllowed);
        }
    }
}

TEST_F(ConfinedFileTransfer, DirectoriesAreFoundAtTheCallAndReplacedByTheNext) {
    const std::ptrdiff_t openBefore = OpenDescriptors();
    Add("T", 1);
    Write(In(), "abc");
    const std::string job = m_directory / "T/job";
    EXPECT_EQ(Allow("T", {m_directory / "T/missing", job, job}), -1);
    EXPECT_EQ(OpenDescriptors(), openBefore + 1);
    EXPECT_THAT(Log("T"), HasSubstr("cannot allow directory /T/missing: No such file or directory\n"));
    fs::rename(job, m_directory / "T/moved");
    fs::create_directory_symlink("other", job);
    Run(kSendFile, "in", "f");
    EXPECT_EQ(Read(m_directory / "T/moved/f"), "abc");
    EXPECT_EQ(Allow("T", {}), 0);
    EXPECT_EQ(OpenDescriptors(), openBefore);
    Run(kSendFile, "in", "g");
    EXPECT_THAT(
        Log("T"),
        HasSubstr("refused to write file /T/job/g as another application asks: it is not in an allowed "
                  "directory\n"));
}

}  // namespace
