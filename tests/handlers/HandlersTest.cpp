#include <gmock/gmock.h>

#include "FakeBackbone.h"
#include "MemoryStream.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgFwdHandler.h"
#include "ZYLMsgPrintingHandler.h"
#include "ZYLMsgSimpleDisconnectHandler.h"
#include "ZYLMsgStringType.h"

namespace {

TEST(Handlers, PrintingHandlerFlushesTheIdentifierBeforeTheMessagePrintsItself) {
    MemoryStream stream;
    // The message's own Print does not flush, so what is flushed after the call was flushed by the handler.
    ZYLMsgPrintingHandler(stream.Get()).HandleMessage(ZYLMsgFileTransferType(), "monitor");
    EXPECT_EQ(stream.Flushed(), "ZYLMsgPrintingHandler::HandleMessage -- id monitor\n");
    EXPECT_EQ(stream.Text(), stream.Flushed() + "Message Type: ZYLMsgFileTransferType\n   DataType: 0\n");
    ZYLMsgPrintingHandler(nullptr).HandleMessage(ZYLMsgFileTransferType(), "monitor");
}

TEST(Handlers, ForwardingHandlerSendsTheMessageOnInItsOwnNameAndPrintsWhileATraceIsSet) {
    ZYLMsgBBCallbackManager::SetMessageID("relay");
    ZYLMsgStringType message;
    message.SetData("a\0b", 3);
    ZYLMsgFwdHandler handler(ZYLString::BuildFromUTF8("plotter"), 4);
    MemoryStream trace;
    handler.SetTrace(trace.Get());
    handler.HandleMessage(message, "solver");
    handler.SetTrace(nullptr);
    handler.HandleMessage(message, "solver");
    EXPECT_EQ(trace.Text(), "Message Type: ZYLMsgStringType\n   size: 3\n   data[0]: a\n   data[2]: b\n");
    const FakeBackbone::Message sent{4, "plotter", "ZYLMsgStringType", std::string("\5\0\0\0relaya\0b", 12)};
    EXPECT_THAT(FakeBackbone::Get().sent, testing::ElementsAre(sent, sent));
}

TEST(Handlers, WatchedLossEndsTheLoopAndOthersOnlyLeaveALine) {
    const struct {
        const char* app;
        const char* host;
        int pid;
        bool isWatched;
    } reports[] = {
        {"solver", "elsewhere", 1, true},
        {"Solver", "NODE7.SITE", 42, true},
        {"Solver", "node8.site", 42, false},
        {"Solver", "node7.site", 43, false},
        {"solve", "", 42, false},
        {nullptr, nullptr, 42, false},
    };
    for (const auto& [app, host, pid, isWatched] : reports) {
        ZYLMsgSimpleDisconnectHandler handler;
        handler.SetDisconnectBehavior(ZYLMsgSimpleDisconnectHandler::e_endLoop);
        handler.SetWatchApplication("mesher", 42, "Node7.site");
        handler.SetWatchApplication("solver", 42, nullptr);  // keeps the host
        testing::internal::CaptureStderr();
        handler.DetectDisconnection(pid, app, host, "me");
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "in disconnection handler, process " + std::to_string(pid) + " -- app -- " +
                      (app != nullptr ? app : "") + " -- host " + (host != nullptr ? host : "") +
                      " -- user me\n" + (isWatched ? "Exit Handler -- confirm exit\n" : ""));
        EXPECT_EQ(handler.EndingCondition(), isWatched ? 0 : -1);
    }
}

TEST(Handlers, WatchedLossEndsTheProcessWithStatusZeroAndItsExitHandlers) {
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
        "app -- other.*\n.*app -- solver.*\nExit Handler -- confirm exit\nexit handler ran\n$");
}

TEST(Handlers, FileTransferHandlerIgnoresUnknownStepsAndNeedsAnEngine) {
    MemoryStream log;
    ZYLMsgFileTransfer engine(1, log.Get(), 9);
    for (const int step : {0, 7, -1}) {
        ZYLMsgFileTransferType message;
        message.Data().m_dataType = step;
        ZYLMsgFileTransferHandler(&engine).HandleMessage(message, "solver");
    }
    EXPECT_EQ(log.Text(), "");
    EXPECT_DEATH(ZYLMsgFileTransferHandler(nullptr).HandleMessage(ZYLMsgFileTransferType(), "solver"),
                 "AssertionFailed:m_fileTransfer != NULL .ZYLMsgFeaMessaging/ZYLMsgHandlers.m/src/");
}

}  // namespace
