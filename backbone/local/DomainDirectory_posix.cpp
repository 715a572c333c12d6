#include "DomainDirectory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <thread>

#include "Descriptors.h"
#include "Diagnostics.h"
#include "system/Process.h"
#include "transport/Transport.h"

namespace zyl::backbone::local {

namespace {

constexpr const char* kSourceFile = "backbone/local/DomainDirectory_posix";

/// sockaddr_un has room for 108 bytes; "/proc/self/fd/<number>/a." takes at most 27 of them.
constexpr std::size_t kLongestSafeName = 64;

/// The kernel cuts it to its own limit; a burst of newcomers fits in either.
constexpr int kBacklog = 4096;

/// A name that is found locked so often, with this time between two looks, is not locked by a process that is
/// just about to end, or to remove what a dead one has left.
constexpr int kLooksAtLock = 1000;
constexpr std::chrono::milliseconds kLockInterval{1};

/// How long a connection to a full backlog may hold the caller up before it looks around again.
constexpr timeval kConnectPatience{0, 20000};

std::string ErrorText() {
    return std::generic_category().message(errno);
}

[[noreturn]] void Refuse(const std::string& path, const std::string& reason, int line) {
    Fatal("cannot use the domain directory " + QuotedPath(path) + ": " + reason +
              "; set ZYL_BACKBONE_DIR to a directory of your own with mode 0700",
          kSourceFile, line);
}

/// The same for what errno tells. Another directory is no help where it is a shortage.
[[noreturn]] void RefuseForError(const std::string& path, const std::string& reason, int line) {
    const std::string text = reason + " (" + ErrorText() + ")";
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOSPC || errno == EDQUOT) {
        Fatal("cannot use the domain directory " + QuotedPath(path) + ": " + text, kSourceFile, line);
    }
    Refuse(path, text, line);
}

std::string BaseDirectory(const std::string& setting) {
    if (!setting.empty()) {
        return setting;
    }
    const char* runtime =
        std::getenv("XDG_RUNTIME_DIR");  // NOLINT(concurrency-mt-unsafe): the backbone has one thread
    if (runtime != nullptr && runtime[0] == '/') {
        return std::string(runtime) + "/zyl-backbone";
    }
    return "/tmp/zyl-backbone-" + std::to_string(geteuid());
}

/// Opens a directory below `parent`, made if it is missing, and checks that it is this user's alone.
FileDescriptor OpenPrivate(int parent, const std::string& name, const std::string& path) {
    FileDescriptor directory;
    do {
        if (mkdirat(parent, name.c_str(), 0700) != 0 && errno != EEXIST) {
            RefuseForError(path, "it cannot be made", __LINE__);
        }
        directory =
            FileDescriptor(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    } while (!directory.IsOpen() && errno == ENOENT);  // the last that left it has just removed it
    struct stat status {};
    if (!directory.IsOpen() || fstat(directory.Get(), &status) != 0) {
        RefuseForError(path, "it cannot be opened as a directory that is no symbolic link", __LINE__);
    }
    if (status.st_uid != geteuid()) {
        Refuse(path, "it belongs to the user with number " + std::to_string(status.st_uid), __LINE__);
    }
    if ((status.st_mode & 0077) != 0) {
        std::array<char, 8> mode{};
        std::snprintf(mode.data(), mode.size(), "%04o", status.st_mode & 07777);
        Refuse(path, std::string("others may use it too (mode ") + mode.data() + ")", __LINE__);
    }
    return directory;
}

/// FNV-1a, 64 bits: tells long names apart that begin alike.
std::string Hash(const std::string& name) {
    std::uint64_t hash = 14695981039346656037U;
    for (const char character : name) {
        hash = (hash ^ static_cast<unsigned char>(character)) * 1099511628211U;
    }
    std::array<char, 17> text{};
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(hash));
    return text.data();
}

/// The name that SafeName turned into `safe`, if it is one that is not hashed.
std::optional<std::string> Decode(const std::string& safe) {
    std::string name;
    for (std::size_t at = 0; at < safe.size(); ++at) {
        unsigned char byte = static_cast<unsigned char>(safe[at]);
        if (byte == '%') {
            std::from_chars(safe.data() + at + 1, safe.data() + std::min(at + 3, safe.size()), byte, 16);
            at += 2;
        }
        name += static_cast<char>(byte);
    }
    return SafeName(name) == safe ? std::optional(name) : std::nullopt;
}

/// Whether the safe form of a name is one that is hashed, whatever stands in its lock file: a process that
/// was killed early leaves none of its name there.
bool IsHashed(const std::string& safe) {
    constexpr std::size_t kHashAt = kLongestSafeName - 16;
    return safe.size() == kLongestSafeName && safe[kHashAt - 1] == '~' &&
           safe.find_first_not_of("0123456789abcdef", kHashAt) == std::string::npos;
}

/// `path` without the separators at its end, which would lead through a symbolic link.
std::string WithoutTrailingSeparators(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

/// The address of a file in a directory that is open: short whatever the directory's own path, and never led
/// astray by what happens to that path.
sockaddr_un AddressOf(int directory, const std::string& file) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", directory, file.c_str());
    return address;
}

const sockaddr* Generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(
        &address);  // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast)
}

/// Whether the open file is still the one of that name.
bool IsNamed(int descriptor, int directory, const std::string& file) {
    struct stat mine {};
    struct stat named {};
    return fstat(descriptor, &mine) == 0 &&
           fstatat(directory, file.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           mine.st_ino == named.st_ino && mine.st_dev == named.st_dev;
}

/// The process that a lock file names; 0 when its holder has not written it yet.
int HolderOf(int lock) {
    std::array<char, 32> content{};
    const ssize_t size = pread(lock, content.data(), content.size() - 1, 0);
    int pid = 0;
    if (size > 0) {
        std::from_chars(content.data(), content.data() + size, pid);
    }
    return pid;
}

/// A socket for a local connection; when there is none to be had this says so, once until there is again.
FileDescriptor NewSocket(int flags) {
    static bool said = false;
    FileDescriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    if (!made.IsOpen() && !said) {
        Report("cannot open a socket: " + ErrorText() + "; will try again");
    }
    said = !made.IsOpen();
    return made;
}

}  // namespace

std::string SafeName(const std::string& name) {
    std::string safe;
    for (const char character : name) {
        const bool plain = (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
                           (character >= 'a' && character <= 'z') || character == '-';
        if (plain) {
            safe += character;
        } else {
            std::array<char, 4> escape{};
            std::snprintf(escape.data(), escape.size(), "%%%02X", static_cast<unsigned char>(character));
            safe += escape.data();
        }
    }
    if (safe.size() <= kLongestSafeName) {
        return safe;
    }
    return safe.substr(0, kLongestSafeName - 17) + "~" + Hash(name);
}

Claim::Claim(const DomainDirectory& directory, std::string safeName, FileDescriptor lock,
             FileDescriptor socket)
    : m_directory(&directory),
      m_safeName(std::move(safeName)),
      m_lock(std::move(lock)),
      m_socket(std::move(socket)) {}

Claim::~Claim() {
    if (m_lock.IsOpen()) {
        m_directory->Vacate(m_safeName);
    }
}

DomainDirectory::DomainDirectory(const std::string& base, const std::string& domain)
    : m_base(WithoutTrailingSeparators(BaseDirectory(base))), m_name("d." + SafeName(domain)) {
    m_path = m_base + "/" + m_name;
    Open();
    RemoveLeftovers();
}

/// One in which somebody holds a name is not empty, and stays.
DomainDirectory::~DomainDirectory() {
    rmdir(m_path.c_str());
}

void DomainDirectory::Open() {
    const FileDescriptor base = OpenPrivate(AT_FDCWD, m_base, m_base);
    m_descriptor = OpenPrivate(base.Get(), m_name, m_path);
}

/// While this process holds no name in it, another one that leaves may remove the directory.
bool DomainDirectory::Renew() {
    struct stat status {};
    if (fstat(m_descriptor.Get(), &status) != 0 || status.st_nlink > 0) {
        return false;
    }
    Open();
    return true;
}

Claim DomainDirectory::Take(const std::string& name, bool announced) {
    const std::string safe = SafeName(name);
    FileDescriptor lock = Lock(safe);
    const std::string content = std::to_string(ProcessId()) + "\n" + name;
    if (ftruncate(lock.Get(), 0) != 0 ||
        pwrite(lock.Get(), content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) {
        RefuseForError(m_path, "a name cannot be written", __LINE__);
    }
    Clear(safe);
    FileDescriptor socket = Listen(safe, announced ? 'a' : 'h');
    return {*this, safe, std::move(lock), std::move(socket)};
}

/// The lock file, locked. A file that was removed between our opening and our locking it locks nothing, and a
/// holder that is dying lets go in a moment, hence the loop. It counts looks, not time: this process may have
/// been stopped between two of them.
FileDescriptor DomainDirectory::Lock(const std::string& safeName) {
    const std::string file = "l." + safeName;
    for (int looks = 0;;) {
        FileDescriptor lock(
            openat(m_descriptor.Get(), file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!lock.IsOpen()) {
            const int reason = errno;
            if (reason == ENOENT && Renew()) {
                continue;
            }
            errno = reason;
            RefuseForError(m_path, "a name cannot be taken", __LINE__);
        }
        if (flock(lock.Get(), LOCK_EX | LOCK_NB) == 0) {
            if (IsNamed(lock.Get(), m_descriptor.Get(), file)) {
                return lock;
            }
        } else if (++looks >= kLooksAtLock) {
            throw NameTaken(HolderOf(lock.Get()), HostName());
        } else {
            std::this_thread::sleep_for(kLockInterval);
        }
    }
}

FileDescriptor DomainDirectory::Listen(const std::string& safeName, char kind) const {
    const std::string hidden = "t." + safeName;
    FileDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_un address = AddressOf(m_descriptor.Get(), hidden);
    const bool listening = listener.IsOpen() && fchmod(listener.Get(), 0600) == 0 &&
                           bind(listener.Get(), Generic(address), sizeof address) == 0 &&
                           listen(listener.Get(), kBacklog) == 0 &&
                           renameat(m_descriptor.Get(), hidden.c_str(), m_descriptor.Get(),
                                    (std::string(1, kind) + "." + safeName).c_str()) == 0;
    if (!listening) {
        RefuseForError(m_path, "an application cannot listen in it", __LINE__);
    }
    return listener;
}

Connected DomainDirectory::Connect(const std::string& name) {
    const std::string safe = SafeName(name);
    for (const char* kind : {"a.", "h."}) {
        FileDescriptor connection = NewSocket(0);
        const sockaddr_un address = AddressOf(m_descriptor.Get(), kind + safe);
        setsockopt(connection.Get(), SOL_SOCKET, SO_SNDTIMEO, &kConnectPatience, sizeof kConnectPatience);
        if (connect(connection.Get(), Generic(address), sizeof address) != 0) {
            continue;
        }
        const ucred peer = PeerOf(connection);
        if (peer.uid != geteuid()) {
            Report("the application " + Quoted(name) + " belongs to the user with number " +
                   std::to_string(peer.uid) + " and is not used");
            continue;
        }
        fcntl(connection.Get(), F_SETFL, O_NONBLOCK);
        return {std::move(connection), peer.pid, kind[0] == 'a'};
    }
    return Renew() ? Connect(name) : Connected{};
}

std::optional<int> DomainDirectory::Holder(const std::string& name) const {
    const FileDescriptor lock(
        openat(m_descriptor.Get(), ("l." + SafeName(name)).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!lock.IsOpen()) {
        return errno == ENOENT ? std::optional(0) : std::nullopt;
    }
    return HolderOf(lock.Get());
}

void DomainDirectory::MarkWatcher(const std::string& name) const {
    const std::string file = "w." + SafeName(name);
    const FileDescriptor marker(
        openat(m_descriptor.Get(), file.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!marker.IsOpen()) {
        RefuseForError(m_path, "a watcher cannot be marked", __LINE__);
    }
}

std::vector<std::string> DomainDirectory::Files(char kind) const {
    std::vector<std::string> names;
    DIR* directory = opendir(("/proc/self/fd/" + std::to_string(m_descriptor.Get())).c_str());
    if (directory == nullptr) {
        Report("cannot list the domain directory " + QuotedPath(m_path) + ": " + ErrorText());
        return names;
    }
    while (const dirent* entry = readdir(directory)) {  // NOLINT(concurrency-mt-unsafe): a stream of its own
        const std::string file = entry->d_name;
        if (file.size() >= 2 && file[0] == kind && file[1] == '.') {
            names.push_back(file.substr(2));
        }
    }
    closedir(directory);
    return names;
}

std::vector<std::string> DomainDirectory::Names(char kind) const {
    std::vector<std::string> names;
    for (const std::string& safeName : Files(kind)) {
        if (std::optional<std::string> name = RealName(safeName)) {
            names.push_back(std::move(*name));
        }
    }
    return names;
}

/// Of a crowd that joins at once only one process does so. Who waits for a lock meanwhile finds its file
/// removed, and makes a new one.
void DomainDirectory::RemoveLeftovers() const {
    const FileDescriptor turn(openat(m_descriptor.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (flock(turn.Get(), LOCK_EX | LOCK_NB) != 0) {
        return;
    }
    for (const std::string& safeName : Files('l')) {
        const std::string file = "l." + safeName;
        const FileDescriptor lock(
            openat(m_descriptor.Get(), file.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
        if (flock(lock.Get(), LOCK_EX | LOCK_NB) == 0 && IsNamed(lock.Get(), m_descriptor.Get(), file) &&
            (RealName(safeName) || IsHashed(safeName))) {
            Vacate(safeName);
        }
    }
}

void DomainDirectory::Clear(const std::string& safeName) const {
    for (const char* kind : {"w.", "a.", "h.", "t."}) {
        Remove(kind + safeName);
    }
}

void DomainDirectory::Vacate(const std::string& safeName) const {
    Clear(safeName);
    Remove("l." + safeName);
}

/// None for a file that no application has made.
std::optional<std::string> DomainDirectory::RealName(const std::string& safeName) const {
    if (safeName.find('~') == std::string::npos) {
        return Decode(safeName);
    }
    std::string content(8192, '\0');
    const FileDescriptor lock(
        openat(m_descriptor.Get(), ("l." + safeName).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    const ssize_t size = lock.IsOpen() ? pread(lock.Get(), content.data(), content.size(), 0) : 0;
    content.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    const std::string name = content.substr(content.find('\n') + 1);
    return SafeName(name) == safeName ? std::optional(name) : std::nullopt;
}

void DomainDirectory::Remove(const std::string& file) const {
    unlinkat(m_descriptor.Get(), file.c_str(), 0);
}

}  // namespace zyl::backbone::local
