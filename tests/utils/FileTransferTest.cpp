#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <sstream>

#include "FileTransferFixture.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

TEST_F(FileTransfer, EveryFlowCopiesFilesOfEverySizeAndGivesANewCopyItsMode) {
    Add("S");
    Add("T");
    umask(0);
    const std::ptrdiff_t openBefore = OpenDescriptors();
    const std::pair<size_t, std::string> files[] = {
        {65537, "T:3#1x65536 T:3#2x1 "},      {0, ""}, {1, "T:3#1x1 "}, {65536, "T:3#1x65536 "},
        {131072, "T:3#1x65536 T:3#2x65536 "},
    };
    for (const auto& [size, chunks] : files) {
        Write(In(), Pattern(size));
        for (const Operation flow : {kSendFile, kISendFile, kReceiveFile}) {
            Run(flow);
            const std::string steps = flow == kSendFile    ? "T:2 " + chunks + "T:4 S:6 "
                                      : flow == kISendFile ? "T:2 " + chunks + "T:5 "
                                                           : "S:1 " + chunks + "T:5 ";
            EXPECT_EQ(TakeSteps(), steps);
            EXPECT_TRUE(Read(Out()) == Pattern(size)) << steps;
        }
    }
    EXPECT_EQ(OpenDescriptors(), openBefore);
    EXPECT_EQ(fs::status(Out()).permissions(), static_cast<fs::perms>(0640));
    // Of the three, ISendFile alone does not wait.
    EXPECT_EQ(m_backbone.calls, std::vector<std::string>(10, "WaitingLoop(1, -1)"));
}

TEST_F(FileTransfer, NullTextsAreEmptyOnesAndAnotherCommunicatorServesAll) {
    ZYLMsgFileTransfer& engine = Add("", 4).m_engine;
    engine.SetCommunicatorId(9);
    for (const Operation flow : {kSendFile, kISendFile, kReceiveFile}) {
        EXPECT_EQ((engine.*flow)(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
        Deliver();
    }
    EXPECT_EQ(engine.ApplicationLost(nullptr), 0);
    EXPECT_THAT(Log(""), testing::Not(HasSubstr("null")));
    EXPECT_THAT(m_backbone.sent, testing::Each(testing::Field(&FakeBackbone::Message::communicator, 9)));
    EXPECT_THAT(m_backbone.calls, testing::Each("WaitingLoop(9, -1)"));
}

std::string Wire(int value) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(static_cast<unsigned>(value) >> shift);
    }
    return bytes;
}
std::string Wire(const std::string& text) {
    return Wire(static_cast<int>(text.size())) + text;
}

TEST_F(FileTransfer, EachMessageHasExactlyItsBytes) {
    Add("S");
    Add("T");
    Write(In(), "abc");
    Run(kSendFile);
    Run(kReceiveFile);
    const std::string names = Wire("S") + Wire(m_directory / "S") + Wire("job") + Wire("in") + Wire("T") +
                              Wire(m_directory / "T") + Wire("job") + Wire("out");
    const std::string noNames(32, '\0');
    const std::string noChunk = Wire(-1) + Wire(0);
    const auto message = [](const char* target, const char* id, int code, const std::string& rest) {
        return FakeBackbone::Message{1, target, "ZYLMsgFileTransferType", Wire(id) + Wire(code) + rest};
    };
    const auto chunk = message("T", "S", 3, noNames + Wire(1) + Wire("abc"));
    EXPECT_THAT(m_backbone.sent,
                ElementsAre(message("T", "S", 2, names + noChunk), chunk,
                            message("T", "S", 4, Wire("S") + noNames.substr(4) + noChunk),
                            message("S", "T", 6, noNames + noChunk), message("S", "T", 1, names + noChunk),
                            chunk, message("T", "S", 5, noNames + noChunk)));
}

/// The lines of `log` that a verbosity shows; each begins with its level.
std::string Shown(int verbosity, const std::string& log) {
    std::istringstream lines(log);
    std::string shown;
    for (std::string line; std::getline(lines, line);) {
        shown += line[0] - '0' <= verbosity ? line.substr(1) + "\n" : "";
    }
    return shown;
}

TEST_F(FileTransfer, LogHasTheLinesOfItsLevel) {
    const std::string sent =
        "1::Send from application S\n1sourceFileName in, targetFileName out\n"
        "1sourceBaseDir (/S) ==> targetBaseDir (/T)\n1sourceJobDir (job) ==> targetJobDir (job)\n"
        "4::OpenFile applicationId S fileName /S/job/in isSender 1 fileId \n"
        "4::ReadChunk fileId  bytes 3\n4::ReadChunk fileId  bytes 0\n";
    const std::string opened = "4::OpenFile applicationId S fileName /T/job/out isSender 0 fileId \n";
    const std::string received =
        "4::ReceiveChunk sourceApplication=S chunkId=1 chunkSize=3\n1updating chunkId 1 for source "
        "Application S\n"
        "4::WriteChunk sourceApplication=S chunkSize=3\n4::WriteChunk bytesWritten=3\n"
        "1::ReceiveISendCompletion sourceApplication=S\n";
    const std::string sentUnasked = sent + "1::SendSendCompletion sourceApplication=S targetApplication=T\n";
    const std::string sentAsAsked = sent + "1::SendISendCompletion Application=T \n";
    const std::string receivedUnasked =
        "1Receive from application S to application T\n1sourceFileName in, targetFileName out\n"
        "1sourceBaseDir (/S), targetBaseDir (/T)\n1sourceJobDir (job), targetJobDir (job)\n" +
        opened + "1opened file out\n" + received + "1::SendReceiveCompletion applicationId=S\n";
    const std::string receivedAsAsked =
        "1ReceiveFile from application S to application T\n1sourceFileName in, targetFileName out\n"
        "1sourceBaseDir /S, targetBaseDir /T\n1sourceJobDir job, targetJobDir job\n" +
        opened + "4opened file out\n" + received;
    for (const int verbosity : {0, 1, 3, 4}) {
        for (const bool isAsked : {false, true}) {
            Add("S", verbosity);
            Add("T", verbosity);
            Write(In(), "abc");
            Run(isAsked ? kReceiveFile : kSendFile);
            EXPECT_EQ(Log("S"), Shown(verbosity, isAsked ? sentAsAsked : sentUnasked));
            EXPECT_EQ(Log("T"), Shown(verbosity, isAsked ? receivedAsAsked : receivedUnasked));
        }
    }
}

TEST_F(FileTransfer, FilesOfTwoSourcesStaySeparateWhenTheirChunksMix) {
    Application& t = Add("T");
    for (const std::string name : {"1", "2"}) {
        Application& s = Add(name);
        Write(s.m_base + "/job/in", Pattern(name == "1" ? 65537 : 131072));
        As(name).ISendFile(name.c_str(), s.m_base.c_str(), "job", "in", "T", t.m_base.c_str(), "",
                           name.c_str());
    }
    const auto sent = m_backbone.sent;
    EXPECT_EQ(TakeSteps(), "T:2 T:3#1x65536 T:3#2x1 T:5 T:2 T:3#1x65536 T:3#2x65536 T:5 ");
    for (size_t step = 0; step < 4; ++step) {
        Dispatch(sent[step]);
        Dispatch(sent[step + 4]);
    }
    EXPECT_TRUE(Read(t.m_base + "/1") == Pattern(65537));
    EXPECT_TRUE(Read(t.m_base + "/2") == Pattern(131072));
    EXPECT_TRUE(t.IsIdle());
}

TEST_F(FileTransfer, AFailureIsAnOutcomeOfBothSidesAndOneLineOnStandardError) {
    const std::string missing = "No such file or directory";
    const struct {
        std::string atFault, failure;
        std::function<void()> arrange;
        std::string log;  // of the side at fault
    } cases[] = {
        {"S", "cannot open file /S/job/in: " + missing, [&] { fs::remove(In()); },
         "isSender 1 fileId -1\nZYLMsgFileTransfer::OpenFile Opening file /S/job/in Failed\n"
         "::ReadChunk fileId -1 bytes -1\n::Send"},
        // It opens, and fails to be read at its start.
        {"S", "cannot read all of file /S/job/in: Input/output error",
         [&] { fs::remove(In()), fs::create_symlink("/proc/self/mem", In()); },
         "isSender 1 fileId \n::ReadChunk fileId  bytes -1\n::Send"},
        {"T", "cannot open file /T/job/out: " + missing, [&] { fs::remove_all(m_directory / "T/job"); },
         "isSender 0 fileId -1\nZYLMsgFileTransfer::OpenFile Opening file /T/job/out Failed\nopened file "
         "out"},
    };
    for (const auto& [atFault, failure, arrange, log] : cases) {
        for (const Operation flow : {kSendFile, kISendFile, kReceiveFile}) {
            Add("S", 4);
            Add("T", 4);
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
            EXPECT_THAT(Log(atFault), HasSubstr(log));
        }
    }
}

TEST_F(FileTransfer, AFileSentOntoItselfKeepsItsBytes) {
    const Application& s = Add("S");
    Add("T");
    Write(In(), "abc");
    fs::create_symlink(In(), Out());
    Run(kSendFile);
    const std::string held = "it is being sent, or locked by another program, and keeps its bytes";
    EXPECT_EQ(Outcome("S"), "T reports: cannot open file /T/job/out: " + held + " after 3");
    As("S").ReceiveFile("S", s.m_base.c_str(), "job", "in", "S", s.m_base.c_str(), "job", "in");
    EXPECT_EQ(Outcome("S"), "cannot open file /S/job/in: " + held + " after 0");
    EXPECT_EQ(Read(In()), "abc");
}

TEST_F(FileTransfer, WordsOfTheOtherSideAreEscapedAndBounded) {
    const std::string base = m_directory.Path();
    ZYLMsgFileTransfer& engine = Add("T").m_engine;
    engine.Receive("S", "", "", "", "T", base.c_str(), "", "out");
    engine.NoteSourceFailure("S", ("\n\x1B[2J\\\\x07" + std::string(1 << 20, 'x')).c_str());
    engine.ReceiveISendCompletion("S");
    EXPECT_THAT(Outcome("T"), HasSubstr("/out is not whole: S reports: \\x0a\\x1b[2J\\\\x07xxx"));
    EXPECT_LT(Outcome("T").size(), 6000U);
    std::string roundabout;
    for (int times = 0; times < 20'000; ++times) {
        roundabout += "a/../";
    }
    engine.Receive("S", "", "", "", "T", base.c_str(), roundabout.c_str(), "out");
    engine.ReceiveISendCompletion("S");
    EXPECT_THAT(Outcome("T"), HasSubstr("...: File name too long"));
    EXPECT_LT(Outcome("T").size(), 6000U);
}

TEST_F(FileTransfer, AWaitThatAnotherTransferEndsDoesNotLookDone) {
    Application& s = Add("S");
    Application& t = Add("T");
    Write(In(), "old");
    Write(t.m_base + "/job/new", "new");
    As("T").ISendFile("T", t.m_base.c_str(), "job", "new", "S", s.m_base.c_str(), "job", "in");
    const std::string ended =
        "the wait ended with another transfer, before application T had confirmed the copy";
    // The wait for the second confirmation ends with the first one.
    for (const std::string& outcome : {ended, ended, std::string("ok")}) {
        As("S").SendFile("S", s.m_base.c_str(), "job", "in", "T", t.m_base.c_str(), "job", "out");
        EXPECT_EQ(Outcome("S"), outcome + " after 3");
        EXPECT_EQ(Read(In()), "new");
        if (outcome == ended && Read(Out()) == "new") {
            Deliver();
        }
    }
    EXPECT_EQ(Read(Out()), "new");
    // Nor does the confirmation of an application that is known to be another one.
    s.m_engine.Receive("X", "", "", "", "S", s.m_base.c_str(), "", "x");
    m_backbone.onSend = [&](const FakeBackbone::Message&) {
        m_backbone.script.assign(
            1, [&] { s.m_engine.NoteConfirmation("X", ""), s.m_engine.ReceiveReceiveCompletion(); });
    };
    s.m_engine.SendFile("S", s.m_base.c_str(), "job", "in", "T", t.m_base.c_str(), "job", "out");
    EXPECT_EQ(Outcome("S"), ended + " after 3");
    s.m_engine.ReceiveISendCompletion("X");
}

TEST_F(FileTransfer, NobodyWaitsForAnApplicationThatIsNotThere) {
    Add("S");
    Add("T");
    m_backbone.isAnybodyThere = false;
    Write(In(), "abc");
    for (const auto& [flow, runner, failure] : {std::tuple(kSendFile, "S", "application T was not there"),
                                                {kISendFile, "S", "application T was not there"},
                                                {kReceiveFile, "T", "application S was not there"}}) {
        Run(flow);
        EXPECT_EQ(Outcome(runner), failure + std::string(" after 0"));
    }
}

TEST_F(FileTransfer, ALostApplicationEndsWhatWaitsForItAndMayComeBack) {
    for (const bool isToldWhileWaiting : {true, false}) {
        for (const Operation flow : {kSendFile, kReceiveFile}) {
            Application& s = Add("S");
            Application& t = Add("T");
            Write(In(), "abc");
            const auto onSend = m_backbone.onSend;
            const auto lose = [&] {
                (flow == kSendFile ? s : t).m_engine.ApplicationLost(flow == kSendFile ? "T" : "S");
            };
            m_backbone.onSend = [&](const FakeBackbone::Message&) {
                isToldWhileWaiting ? m_backbone.script.assign(1, lose) : lose();
            };
            Run(flow);
            m_backbone.onSend = onSend;
            EXPECT_EQ(flow == kSendFile ? Outcome("S") : Outcome("T"),
                      flow == kSendFile ? "application T was lost before it confirmed the copy after 3"
                                        : "file /T/job/out is incomplete: application S was lost after 0 "
                                          "bytes were written after 0");
            Run(flow);
            EXPECT_EQ(Outcome("T"), "ok after 3");
        }
    }
}

TEST_F(FileTransfer, BrokenProtocolEndsTheReceiver) {
    const std::string path = m_directory.Path().string();
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
        {[&] { engine.ReceiveChunk("S", INT_MIN, 1, "a"); }, "expected 1 got 2147483647\n", sequence},
        {[&] { engine.ReceiveChunk("S", 2, 0, nullptr); }, "chunkId=2 chunkSize=0\n", "chunkSize > 0"},
        {[&] { engine.ReceiveChunk("X", 1, 1, "a"); },
         "havent initialized the file for app: X\n.*a chunk came from 'X', but no file .* [(]open: 'S'[)]",
         "[*]{2}ERROR[*]{2}, cannot write this chunk since we havent initialized the file for app"},
        {[&] { engine.WriteChunk("X", 1, "a"); }, "", "itr != m_receiveFileMap.end\\(\\)"},
        {[&] { engine.ReceiveISendCompletion("X"); },
         "::ReceiveISendCompletion sourceApplication=X\ncannot find file for sourceApplication\n.*a "
         "completion came from 'X'",
         "itr != m_receiveFileMap.end\\(\\)"},
    };
    for (const auto& [breach, line, fatal] : cases) {
        EXPECT_DEATH(breach(), line + ".*AssertionFailed:.*" + fatal + ".*/src/ZYLMsgFileTransfer:");
    }
    close(engine.m_receiveFileMap.begin()->second);
    engine.ReceiveISendCompletion("S");
    EXPECT_THAT(engine.LastOutcome().text.GetUTF8(), HasSubstr("/out: Bad file descriptor"));
}

}  // namespace
