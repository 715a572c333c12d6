// load_loop USER LIBRARY: loads USER, which brings LIBRARY with it, uses it and unloads both, again and
// again. Linked to neither. Fails when a use goes wrong, when the library stays after its unloading, or
// (under a leak checker) leaks.
#include <dlfcn.h>

#include <cstdio>

int main(int argc, char** argv) {
    for (int round = 1; argc == 3 && round <= 100; ++round) {
        void* const loaded = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (loaded == nullptr) {
            std::fprintf(stderr, "load_loop: round %d: not loaded: %s\n", round, dlerror());
            return 1;
        }
        // A user that had stayed in memory would count on from the last round.
        const auto use = reinterpret_cast<int (*)()>(dlsym(loaded, "UseLibrary"));
        const bool isUsed = use != nullptr && use() == 1;
        if (!isUsed || dlclose(loaded) != 0 || dlopen(argv[2], RTLD_NOW | RTLD_NOLOAD) != nullptr) {
            std::fprintf(stderr, "load_loop: round %d: not %s\n", round, isUsed ? "unloaded" : "usable");
            return 1;
        }
    }
    return argc == 3 ? 0 : 2;
}
