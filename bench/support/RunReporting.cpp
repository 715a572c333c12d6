#include "RunReporting.h"

#include <fmt/core.h>

#include <cstdio>
#include <exception>

int RunReporting(const char* program, int (*run)(int argc, char** argv), int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}: {}\n", program, error.what());
        return 1;
    }
}
