#include <fmt/format.h>
#include <gtest/gtest.h>

#include "MemoryStream.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgPrintingHandler.h"
#include "ZYLMsgSimpleDisconnectHandler.h"

namespace {

TEST(Handlers, PrintingHandlerFlushesTheIdentifierBeforeTheMessagePrintsItself) {
    MemoryStream stream;
    // The message's own Print does not flush, so what is flushed after the call was flushed by the handler.
    ZYLMsgPrintingHandler(stream.Get()).HandleMessage(ZYLMsgFileTransferType(), "monitor");
    EXPECT_EQ(stream.Flushed(), "ZYLMsgPrintingHandler::HandleMessage -- id monitor\n");
    EXPECT_EQ(stream.Text(), stream.Flushed() + "Message Type: ZYLMsgFileTransferType\n   DataType: 0\n");
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
    };
    for (const auto& [app, host, pid, isWatched] : reports) {
        ZYLMsgSimpleDisconnectHandler handler;
        handler.SetDisconnectBehavior(ZYLMsgSimpleDisconnectHandler::e_endLoop);
        handler.SetWatchApplication("mesher", 42, "Node7.site");
        handler.SetWatchApplication("solver", 42, nullptr);  // keeps the host
        testing::internal::CaptureStderr();
        handler.DetectDisconnection(pid, app, host, "me");
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  fmt::format("in disconnection handler, process {} -- app -- {} -- host {} -- user me\n{}",
                              pid, app, host, isWatched ? "Exit Handler -- confirm exit\n" : ""));
        EXPECT_EQ(handler.EndingCondition(), isWatched ? 0 : -1);
    }
}

}  // namespace
