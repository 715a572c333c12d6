#include "Fuzz.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "QORFatalError.h"

void QORFatalError(const char*, const char*, const char*, const char*, const char*, int) {
    throw FatalError{};
}

void Require(bool kept, const char* text) {
    if (!kept) {
        std::fprintf(stderr, "broken promise: %s\n", text);
        std::abort();
    }
}

/// The entry of libFuzzer, and of Replay.cpp.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        RunInput({reinterpret_cast<const char*>(data), size});
    } catch (const FatalError&) {
    }
    return 0;
}
