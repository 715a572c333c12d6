#include "system/posix/UnixNames.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <utility>

#include "Diagnostics.h"
#include "platform/system/SystemError.h"
#include "system/SafeName.h"
#include "system/posix/Leftovers.h"
#include "system/posix/UnixChannel.h"

namespace zyl::backbone::system::posix {

namespace {

using platform::SystemError;

std::string LockFileOf(const std::string& name) {
    return "l." + SafeName(name);
}

/// Greater than before the file was last removed, for no time goes back as long as a process of this machine
/// lives; and greater than what stands in it.
std::uint64_t NextOrder(const std::optional<Entry>& last) {
    const auto now = std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
    return std::max(static_cast<std::uint64_t>(now), last ? last->order + 1 : 0);
}

}  // namespace

UnixNames::UnixNames(const Poller& poller, SpareDescriptors& spares, const Self& self,
                     const std::string& base, const std::string& domain)
    : m_poller(poller),
      m_spares(spares),
      m_self(self),
      m_directory(spares, base, domain),
      m_socket(m_directory, poller, spares, self.identity) {
    RemoveLeftovers(m_directory);
    m_spares.Refill();
}

UnixNames::~UnixNames() {
    for (const auto& [name, lock] : m_held) {
        m_directory.Remove(LockFileOf(name));
    }
}

Names::Claimed UnixNames::Claim(const std::string& name, bool announced) {
    for (;;) {
        BeMet();
        LockFile file = OpenToClaim(LockFileOf(name));
        if (!file.IsOpen()) {
            continue;
        }
        if (!file.TakeFor(m_self.identity)) {
            if (errno != EAGAIN && errno != EACCES) {
                m_directory.RefuseForError("a name cannot be locked");
            }
            return {false, file.Read().value_or(Entry{})};
        }
        if (file.IsRemoved()) {
            continue;
        }
        Entry entry{name, m_self.identity, m_self.pid, m_self.host, announced, false, NextOrder(file.Read())};
        if (!file.Write(entry)) {
            m_directory.RefuseForError("a name cannot be written");
        }
        m_held.emplace(name, std::move(file));
        return {true, std::move(entry)};
    }
}

/// Nobody can connect to a name whose holder does not listen yet, so this comes first.
void UnixNames::BeMet() {
    while (!m_socket.IsOpen() && !m_socket.Open()) {
        if (errno != ENOENT || !Renew()) {
            m_directory.RefuseForError("an application cannot listen in it");
        }
    }
}

/// Not open when the directory was made anew in between.
LockFile UnixNames::OpenToClaim(const std::string& file) {
    LockFile opened(m_directory.OpenToKeep(file, O_RDWR | O_CREAT));
    if (!opened.IsOpen()) {
        const SystemError error = SystemError::Last("open");
        if (error.reason != ENOENT || !Renew()) {
            errno = error.reason;
            m_directory.RefuseForError("a name cannot be taken");
        }
    }
    return opened;
}

void UnixNames::MarkWatcher(const std::string& name) {
    if (!m_held.at(name).MarkWatcher()) {
        m_directory.RefuseForError("a watcher cannot be marked");
    }
}

/// The fence keeps what this process has written before from being seen by others after it has looked.
std::vector<Entry> UnixNames::List() {
    std::atomic_thread_fence(std::memory_order_seq_cst);
    std::vector<std::string> files = m_directory.Files();
    if (files.empty() && errno == ENOENT && Renew()) {
        files = m_directory.Files();
    }
    std::vector<Entry> entries;
    for (const std::string& file : files) {
        if (file.starts_with("l.")) {
            if (std::optional<Entry> entry = ReadEntry(file)) {
                entries.push_back(std::move(*entry));
            }
        }
    }
    m_spares.Refill();
    return entries;
}

std::optional<Entry> UnixNames::Find(const std::string& name) {
    std::optional<Entry> entry = ReadEntry(LockFileOf(name));
    if (!entry && Renew()) {
        entry = ReadEntry(LockFileOf(name));
    }
    m_spares.Refill();
    return entry;
}

/// What another name's file would say is not believed.
std::optional<Entry> UnixNames::ReadEntry(const std::string& file) {
    const LockFile lock(m_directory.OpenForAMoment(file, O_RDONLY));
    std::optional<Entry> entry = lock.IsOpen() ? lock.Read() : std::nullopt;
    return entry && LockFileOf(entry->name) == file ? std::move(entry) : std::nullopt;
}

Names::Holding UnixNames::IsHeld(const Entry& entry) {
    Holding holding = Holding::kUnknown;
    {
        const LockFile lock(m_directory.OpenForAMoment(LockFileOf(entry.name), O_RDONLY));
        if (lock.IsOpen()) {
            const std::optional<bool> held = lock.IsHeldBy(entry.identity);
            holding = !held ? Holding::kUnknown : *held ? Holding::kYes : Holding::kNo;
        } else if (errno == ENOENT) {
            holding = Holding::kNo;
        }
    }
    m_spares.Refill();
    return holding;
}

Names::Connection UnixNames::Connect(const Entry& entry) {
    FileDescriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!made.IsOpen()) {
        return NoSocket();
    }
    m_saidNoSocket = false;
    const sockaddr_un address = m_directory.AddressOf(SocketFileOf(entry.identity));
    const int result = Retried(
        [&] { return connect(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address); });
    if (result == 0) {
        return Connected(std::move(made), entry.name);
    }
    const bool isGone = errno == ENOENT || errno == ECONNREFUSED;
    if (errno == ENOENT) {
        Renew();
    }
    return {isGone ? Reached::kNobody : Reached::kNotNow};
}

Names::Connection UnixNames::Connected(FileDescriptor socket, const std::string& name) {
    if (const std::optional<unsigned> user = PeerOf(socket.Get()).strangeUser) {
        Report(fmt::format("the application {} belongs to the user with number {} and is not used",
                           Quoted(name), *user));
        return {Reached::kNobody};
    }
    return {Reached::kConnected, std::make_unique<UnixChannel>(std::move(socket), m_poller, m_spares)};
}

/// Says so once, until there is one again.
Names::Connection UnixNames::NoSocket() {
    if (!std::exchange(m_saidNoSocket, true)) {
        Report(fmt::format("{}; will try again", SystemError::Last("cannot open a socket").Text()));
    }
    return {Reached::kNotNow};
}

/// A directory that is deleted is left for the one that stands at its place now, where this process holds no
/// name in it: the last that left may have removed it. True when that has happened.
bool UnixNames::Renew() {
    if (!m_directory.IsDeleted()) {
        return false;
    }
    if (!m_held.empty()) {
        if (!std::exchange(m_saidDeleted, true)) {
            Report(
                fmt::format("the domain directory {} was deleted: applications that start from now on cannot "
                            "be met",
                            QuotedPath(m_directory.Path())));
        }
        return false;
    }
    m_socket.Close();
    m_directory.Reopen();
    return true;
}

}  // namespace zyl::backbone::system::posix
