#include "system/Process.h"

#include <pthread.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <vector>

namespace zyl::backbone {

int ProcessId() {
    return getpid();
}

std::string HostName() {
    std::array<char, 256> name{};
    gethostname(name.data(), name.size() - 1);
    return name.data();
}

std::string UserName() {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr ? found->pw_name : "uid" + std::to_string(geteuid());
}

void OnForkInChild(void (*handler)()) {
    pthread_atfork(nullptr, nullptr, handler);
}

}  // namespace zyl::backbone
