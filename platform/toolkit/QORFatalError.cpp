#include "QORFatalError.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>
#include <utility>

namespace {

/// Long enough for what stands in the buffers, also over a network; short enough for a process that is to
/// end.
constexpr std::chrono::seconds kFlushLimit{2};

/// A stream that another thread holds, such as a standard input that it reads, is waited for by fflush; so
/// that is done beside this thread, which goes on in any case.
void FlushAllStreams() {
    try {
        std::packaged_task<void()> flush([] { std::fflush(nullptr); });
        const std::future<void> done = flush.get_future();
        std::thread(std::move(flush)).detach();
        done.wait_for(kFlushLimit);
    } catch (...) {
        std::fflush(nullptr);  // neither a thread nor memory is to be had
    }
}

}  // namespace

[[noreturn]] void QORFatalError(const char* message, const char* detail1, const char* detail2,
                                const char* detail3, const char* sourceFile, int line) {
    std::fflush(stdout);
    std::string text = std::string("Fatal error: ") + message;
    for (const char* detail : {detail1, detail2, detail3}) {
        if (detail != nullptr) {
            text.append(" ").append(detail);
        }
    }
    text.append(" (").append(sourceFile).append(":").append(std::to_string(line)).append(")\n");
    // Whatever buffer a program gave to standard error is empty first, so the line leaves in one write.
    std::fflush(stderr);
    std::fwrite(text.data(), 1, text.size(), stderr);
    FlushAllStreams();
    std::abort();
}
