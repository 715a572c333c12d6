#include "system/posix/DomainDirectory.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Diagnostics.h"
#include "platform/system/SystemError.h"
#include "system/SafeName.h"

namespace zyl::backbone::system::posix {

namespace {

constexpr const char* kSourceFile = "backbone/system/posix/DomainDirectory_posix";

[[noreturn]] void Refuse(const std::string& path, const std::string& reason, int line) {
    Fatal(
        fmt::format("cannot use the domain directory {}: {}; set ZYL_BACKBONE_DIR to a directory of your own "
                    "with mode 0700",
                    QuotedPath(path), reason),
        kSourceFile, line);
}

/// The same for what errno tells. Another directory is no help where it is a shortage.
[[noreturn]] void RefuseLast(const std::string& path, const std::string& reason, int line) {
    const platform::SystemError error = platform::SystemError::Last(reason);
    const std::string text = fmt::format("{} ({})", reason, error.Reason());
    if (error.IsShortage()) {
        Fatal(fmt::format("cannot use the domain directory {}: {}", QuotedPath(path), text), kSourceFile,
              line);
    }
    Refuse(path, text, line);
}

std::string BaseDirectory(const std::string& setting) {
    if (!setting.empty() && setting.front() != '/') {
        Fatal(fmt::format("ZYL_BACKBONE_DIR is {}; it must be an absolute path", QuotedPath(setting)),
              kSourceFile, __LINE__);
    }
    if (!setting.empty()) {
        return setting;
    }
    const char* runtime =
        std::getenv("XDG_RUNTIME_DIR");  // NOLINT(concurrency-mt-unsafe): the backbone has one thread
    if (runtime != nullptr && runtime[0] == '/') {
        return fmt::format("{}/zyl-backbone", runtime);
    }
    return fmt::format("/tmp/zyl-backbone-{}", geteuid());
}

/// `path` without the separators at its end, which would lead through a symbolic link.
std::string WithoutTrailingSeparators(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

/// Opens a directory below `parent`, made if it is missing, and checks that it is this user's alone.
FileDescriptor OpenPrivate(int parent, const std::string& name, const std::string& path) {
    FileDescriptor directory;
    do {
        if (mkdirat(parent, name.c_str(), 0700) != 0 && errno != EEXIST) {
            RefuseLast(path, "it cannot be made", __LINE__);
        }
        directory =
            FileDescriptor(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    } while (!directory.IsOpen() && errno == ENOENT);  // the last that left it has just removed it
    struct stat status {};
    if (!directory.IsOpen() || fstat(directory.Get(), &status) != 0) {
        RefuseLast(path, "it cannot be opened as a directory that is no symbolic link", __LINE__);
    }
    if (status.st_uid != geteuid()) {
        Refuse(path, fmt::format("it belongs to the user with number {}", status.st_uid), __LINE__);
    }
    if ((status.st_mode & 0077) != 0) {
        Refuse(path, fmt::format("others may use it too (mode {:04o})", status.st_mode & 07777), __LINE__);
    }
    return directory;
}

}  // namespace

DomainDirectory::DomainDirectory(SpareDescriptors& spares, const std::string& base, const std::string& domain)
    : m_spares(spares),
      m_base(WithoutTrailingSeparators(BaseDirectory(base))),
      m_name("d." + SafeName(domain)),
      m_path(fmt::format("{}/{}", m_base, m_name)) {
    Reopen();
}

DomainDirectory::~DomainDirectory() {
    rmdir(m_path.c_str());
}

void DomainDirectory::Reopen() {
    const FileDescriptor base = OpenPrivate(AT_FDCWD, m_base, m_base);
    m_descriptor = OpenPrivate(base.Get(), m_name, m_path);
}

bool DomainDirectory::IsDeleted() const {
    struct stat status {};
    return fstat(m_descriptor.Get(), &status) == 0 && status.st_nlink == 0;
}

/// Read through the descriptor that is open already, for there may be no other.
std::vector<std::string> DomainDirectory::Files() const {
    std::vector<std::string> files;
    alignas(dirent64) std::array<char, 32768> buffer;
    lseek(m_descriptor.Get(), 0, SEEK_SET);
    ssize_t size = 0;
    while ((size = getdents64(m_descriptor.Get(), buffer.data(), buffer.size())) > 0) {
        for (ssize_t at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + at);
            files.emplace_back(entry->d_name);
            at += entry->d_reclen;
        }
    }
    if (size < 0) {
        files.clear();
    }
    return files;
}

/// O_NONBLOCK: a stray FIFO holds nobody up.
FileDescriptor DomainDirectory::OpenForAMoment(const std::string& file, int flags) const {
    return m_spares.ForAMoment([&] {
        return openat(m_descriptor.Get(), file.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    });
}

FileDescriptor DomainDirectory::OpenToKeep(const std::string& file, int flags) const {
    return FileDescriptor(Retried([&] {
        return openat(m_descriptor.Get(), file.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    }));
}

void DomainDirectory::Remove(const std::string& file) const {
    unlinkat(m_descriptor.Get(), file.c_str(), 0);
}

bool DomainDirectory::Rename(const std::string& from, const std::string& to) const {
    return renameat(m_descriptor.Get(), from.c_str(), m_descriptor.Get(), to.c_str()) == 0;
}

/// A path that is too long for an address leads through this process's own descriptor.
sockaddr_un DomainDirectory::AddressOf(const std::string& file) const {
    std::string path = fmt::format("{}/{}", m_path, file);
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) {
        path = fmt::format("/proc/self/fd/{}/{}", m_descriptor.Get(), file);
    }
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

FileDescriptor DomainDirectory::TurnToTidy() const {
    FileDescriptor turn = OpenForAMoment(".", O_RDONLY | O_DIRECTORY);
    return flock(turn.Get(), LOCK_EX | LOCK_NB) == 0 ? std::move(turn) : FileDescriptor();
}

void DomainDirectory::RefuseForError(const std::string& reason) const {
    RefuseLast(m_path, reason, __LINE__);
}

}  // namespace zyl::backbone::system::posix
