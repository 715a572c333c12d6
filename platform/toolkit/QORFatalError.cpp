#include "QORFatalError.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>
#include <utility>

namespace {

/// Long enough to flush the buffers even over a network, short enough for a process that must end.
constexpr std::chrono::seconds kFlushLimit{2};

/// fflush blocks on a stream that another thread has locked, such as a standard input that it is reading.
/// Another thread therefore calls it, and this one continues after the limit.
void FlushAllStreams() {
    try {
        std::packaged_task<void()> flush([] { std::fflush(nullptr); });
        const std::future<void> done = flush.get_future();
        std::thread(std::move(flush)).detach();
        done.wait_for(kFlushLimit);
    } catch (...) {
        std::fflush(nullptr);  // out of threads or memory
    }
}

}  // namespace

[[noreturn]] void QORFatalError(const char* message, const char* detail1, const char* detail2,
                                const char* detail3, const char* sourceFile, int line) {
    std::fflush(stdout);
    std::string details;
    for (const char* detail : {detail1, detail2, detail3}) {
        if (detail != nullptr) {
            details.append(" ").append(detail);
        }
    }
    const std::string text = fmt::format("Fatal error: {}{} ({}:{})\n", message, details, sourceFile, line);
    // A program may have given standard error a buffer. It is emptied first, so that the line is one
    // write.
    std::fflush(stderr);
    std::fwrite(text.data(), 1, text.size(), stderr);
    FlushAllStreams();
    std::abort();
}
