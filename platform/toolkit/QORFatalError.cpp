#include "QORFatalError.h"

#include <cstdio>
#include <cstdlib>
#include <string>

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
    std::fflush(stderr);
    std::abort();
}
