#include "system/posix/Leftovers.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <string>
#include <vector>

#include "system/SafeName.h"
#include "system/posix/LockFile.h"

namespace zyl::backbone::system::posix {

namespace {

/// The sockets of `files` that no process has open. A datagram socket cannot be connected to any of them, but
/// the kernel says whether there was one at all, and who has it sees nothing of it.
std::vector<std::string> DeadSockets(const DomainDirectory& directory,
                                     const std::vector<std::string>& files) {
    std::vector<std::string> dead;
    const FileDescriptor probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    for (const std::string& file : files) {
        if (!file.starts_with("s.") && !file.starts_with("t.")) {
            continue;
        }
        const sockaddr_un address = directory.AddressOf(file);
        if (connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
            errno == ECONNREFUSED) {
            dead.push_back(file);
        }
    }
    return dead;
}

/// Who waits for the name meanwhile finds its file removed, and makes a new one.
void RemoveIfNobodyHolds(const DomainDirectory& directory, const std::string& file) {
    const LockFile lock(directory.OpenForAMoment(file, O_RDWR));
    if (lock.IsOpen() && lock.TakeRight() && !lock.IsRemoved()) {
        directory.Remove(file);
    }
}

}  // namespace

/// A dead process's socket is removed last: as long as it is there, the next one looks for the rest, too.
void RemoveLeftovers(const DomainDirectory& directory) {
    const FileDescriptor turn = directory.TurnToTidy();
    if (!turn.IsOpen()) {
        return;
    }
    const std::vector<std::string> files = directory.Files();
    const std::vector<std::string> dead = DeadSockets(directory, files);
    for (const std::string& file : dead.empty() ? dead : files) {
        if (file.starts_with("l.") && IsSafeName(file.substr(2))) {
            RemoveIfNobodyHolds(directory, file);
        }
    }
    for (const std::string& file : dead) {
        directory.Remove(file);
    }
}

}  // namespace zyl::backbone::system::posix
