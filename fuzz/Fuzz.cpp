#include "Fuzz.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

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

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        RunInput({reinterpret_cast<const char*>(data), size});
    } catch (const FatalError&) {
    }
    return 0;
}

#ifdef ZYL_REPLAY
/// Without libFuzzer: runs the files of the directories that are the arguments.
int main(int argc, char** argv) {
    int count = 0;
    for (int index = 1; index < argc; ++index) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[index])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string bytes{std::istreambuf_iterator<char>(file), {}};
            std::printf("%s: %zu bytes\n", entry.path().c_str(), bytes.size());
            std::fflush(stdout);
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            ++count;
        }
    }
    std::printf("%d inputs\n", count);
    return count > 0 ? 0 : 1;
}
#endif
