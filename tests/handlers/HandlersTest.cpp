#include <gmock/gmock.h>

#include "FakeBackbone.h"
#include "MemoryStream.h"
#include "QORText.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgFwdHandler.h"
#include "ZYLMsgPrintingHandler.h"
#include "ZYLMsgSimpleDisconnectHandler.h"
#include "ZYLMsgStringType.h"

using testing::IsEmpty;

namespace {

class Handlers : public testing::Test {
  public:
    Handlers() { FakeBackbone::Get() = {}; }
    ~Handlers() override { ZYLMsgBBCallbackManager::SetMessageID(""); }

  protected:
    FakeBackbone& m_backbone = FakeBackbone::Get();
};

TEST_F(Handlers, PrintingHandlerFlushesTheIdentifierBeforeTheMessagePrintsItself) {
    MemoryStream stream;
    // The message's own Print does not flush, so what is flushed after the call was flushed by the handler.
    ZYLMsgPrintingHandler(stream.Get()).HandleMessage(ZYLMsgFileTransferType(), "monitor");
    EXPECT_EQ(stream.Flushed(), "ZYLMsgPrintingHandler::HandleMessage -- id monitor\n");
    EXPECT_EQ(stream.Text(),
              "ZYLMsgPrintingHandler::HandleMessage -- id monitor\n"
              "Message Type: ZYLMsgFileTransferType\n   DataType: 0\n");
    ZYLMsgPrintingHandler(nullptr).HandleMessage(ZYLMsgFileTransferType(), "monitor");
}

TEST_F(Handlers, ForwardingHandlerSendsTheMessageOnInItsOwnNameAndPrintsWhileATraceIsSet) {
    ZYLMsgBBCallbackManager::SetMessageID("relay");
    ZYLMsgStringType message;
    message.SetData("a\0b", 3);
    ZYLMsgFwdHandler handler(ZYLString::BuildFromUTF8("plotter"), 4);
    MemoryStream trace;
    for (FILE* stream : {static_cast<FILE*>(nullptr), trace.Get(), static_cast<FILE*>(nullptr)}) {
        handler.SetTrace(stream);
        handler.HandleMessage(message, "solver");
    }
    EXPECT_THAT(trace.Text(),
                testing::MatchesRegex("Message Type: ZYLMsgStringType\n   size: 3\n.*a\n.*b\n"));
    EXPECT_THAT(m_backbone.sent,
                testing::AllOf(testing::SizeIs(3),
                               testing::Each(FakeBackbone::Message{4, "plotter", "ZYLMsgStringType",
                                                                   std::string("\5\0\0\0relaya\0b", 12)})));
}

struct Report {
    const char* app;
    const char* host;
    int pid;
    bool watched;
};

constexpr Report kReports[] = {
    {"solver", "elsewhere", 1, true},    {"other", "node7.Site", 42, true},
    {"Solver", "NODE7.SITE", 42, true},  {"Solver", "node8.site", 42, false},
    {"Solver", "node7.site", 43, false}, {"solve", "", 42, false},
    {nullptr, nullptr, 42, false},
};

std::string FirstLine(const Report& report) {
    return "in disconnection handler, process " + std::to_string(report.pid) + " -- app -- " +
           QORText::OrEmpty(report.app) + " -- host " + QORText::OrEmpty(report.host) + " -- user me\n";
}

TEST_F(Handlers, WatchedLossEndsTheLoopAndOthersOnlyLeaveALine) {
    for (const Report& report : kReports) {
        ZYLMsgSimpleDisconnectHandler handler;
        handler.SetWatchApplication("solver", 42, "Node7.site");
        handler.SetDisconnectBehavior(ZYLMsgSimpleDisconnectHandler::e_endLoop);
        testing::internal::CaptureStderr();
        handler.DetectDisconnection(report.pid, report.app, report.host, "me");
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  FirstLine(report) + (report.watched ? "Exit Handler -- confirm exit\n" : ""));
        EXPECT_EQ(handler.EndingCondition(), report.watched ? 0 : -1) << FirstLine(report);
    }
}

TEST_F(Handlers, NullHostKeepsTheWatchedHost) {
    ZYLMsgSimpleDisconnectHandler handler;
    handler.SetDisconnectBehavior(static_cast<ZYLMsgSimpleDisconnectHandler::e_behavior>(2));
    handler.SetWatchApplication("solver", 42, "node7");
    handler.SetWatchApplication("mesher", 43, nullptr);
    handler.DetectDisconnection(43, "x", "", "me");
    handler.DetectDisconnection(42, "solver", "node7", "me");
    EXPECT_EQ(handler.EndingCondition(), -1);
    handler.DetectDisconnection(43, "x", "node7", "me");
    EXPECT_EQ(handler.EndingCondition(), 0);
}

TEST_F(Handlers, WatchedLossEndsTheProcessWithStatusZeroAndItsExitHandlers) {
    EXPECT_EXIT(
        {
            std::atexit([] { fputs("exit handler ran\n", stderr); });
            ZYLMsgSimpleDisconnectHandler handler;
            handler.SetWatchApplication("solver", 42, nullptr);
            handler.DetectDisconnection(7, "other", "h", "me");
            handler.DetectDisconnection(7, "solver", "h", "me");
            _exit(1);
        },
        testing::ExitedWithCode(0),
        "app -- other.*\nin disconnection handler, process 7 -- app -- solver -- host h -- user me\n"
        "Exit Handler -- confirm exit\nexit handler ran\n$");
}

TEST_F(Handlers, FileTransferHandlerIgnoresUnknownStepsAndNeedsAnEngine) {
    MemoryStream log;
    ZYLMsgFileTransfer engine(1, log.Get(), 9);
    for (const int step : {0, 7, -1}) {
        ZYLMsgFileTransferType message;
        message.Data().m_dataType = step;
        ZYLMsgFileTransferHandler(&engine).HandleMessage(message, "solver");
    }
    EXPECT_EQ(log.Text(), "");
    EXPECT_THAT(m_backbone.sent, IsEmpty());
    EXPECT_DEATH(ZYLMsgFileTransferHandler(nullptr).HandleMessage(ZYLMsgFileTransferType(), "solver"),
                 "AssertionFailed:m_fileTransfer != NULL .ZYLMsgFeaMessaging/ZYLMsgHandlers.m/src/");
}

}  // namespace
