// load_loop USER LIBRARY: loads USER, which brings LIBRARY with it, uses it and unloads both, again and
// again. Linked to neither. Fails when a use goes wrong, when the library stays after its unloading, or
// (under a leak checker) leaks.

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kRounds = 100;

[[noreturn]] void Fail(const char* what, int round) {
    const char* error = dlerror();
    std::fprintf(stderr, "load_loop: round %d: %s: %s\n", round, what, error != nullptr ? error : "");
    std::exit(1);
}

void LoadUseUnload(const char* user, const char* library, int round) {
    void* loaded = dlopen(user, RTLD_NOW | RTLD_LOCAL);
    if (loaded == nullptr) {
        Fail("not loaded", round);
    }
    const auto use = reinterpret_cast<int (*)()>(dlsym(loaded, "UseLibrary"));
    // A user that had stayed in memory would count on from the last round.
    if (use == nullptr || use() != 1) {
        Fail("not usable", round);
    }
    if (dlclose(loaded) != 0 || dlopen(library, RTLD_NOW | RTLD_NOLOAD) != nullptr) {
        Fail("not unloaded", round);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: load_loop USER LIBRARY\n");
        return 2;
    }
    for (int round = 1; round <= kRounds; ++round) {
        LoadUseUnload(argv[1], argv[2], round);
    }
    return 0;
}
