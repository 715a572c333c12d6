#include "system/posix/LockFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>

#include "platform/system/Retried.h"
#include "system/SafeName.h"

namespace zyl::backbone::system::posix {

namespace {

using platform::Retried;

/// A name has at most 4096 bytes, a host 255.
constexpr std::size_t kLongestContent = 8192;

constexpr off_t kRight = 0;

off_t LifeOf(const Identity& holder) {
    return static_cast<off_t>(1 + (holder.low >> 2));
}

struct flock LockOn(off_t byte) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

bool Take(int file, off_t byte) {
    const struct flock lock = LockOn(byte);
    return Retried([&] { return fcntl(file, F_OFD_SETLK, &lock); }) == 0;
}

/// Cuts what stands before the next `end` off `text`.
std::string_view Cut(std::string_view& text, char end) {
    const std::size_t size = std::min(text.find(end), text.size());
    const std::string_view part = text.substr(0, size);
    text.remove_prefix(std::min(size + 1, text.size()));
    return part;
}

template <class Number>
bool Read(std::string_view text, int base, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size();
}

bool ReadIdentity(std::string_view text, Identity& identity) {
    return text.size() == 32 && Read(text.substr(0, 16), 16, identity.high) &&
           Read(text.substr(16), 16, identity.low);
}

}  // namespace

std::string TextOf(const Identity& identity) {
    return fmt::format("{:016x}{:016x}", identity.high, identity.low);
}

bool LockFile::IsRemoved() const {
    struct stat status {};
    return fstat(m_file.Get(), &status) == 0 && status.st_nlink == 0;
}

bool LockFile::TakeRight() const {
    return Take(m_file.Get(), kRight);
}

bool LockFile::TakeFor(const Identity& holder) const {
    return Take(m_file.Get(), kRight) && Take(m_file.Get(), LifeOf(holder));
}

std::optional<bool> LockFile::IsHeldBy(const Identity& holder) const {
    struct flock lock = LockOn(LifeOf(holder));
    const int result = Retried([&] { return fcntl(m_file.Get(), F_OFD_GETLK, &lock); });
    return result == 0 ? std::optional(lock.l_type != F_UNLCK) : std::nullopt;
}

std::optional<Entry> LockFile::Read() const {
    std::array<char, kLongestContent> content;
    const ssize_t size = Retried([&] { return pread(m_file.Get(), content.data(), content.size(), 0); });
    std::string_view text(content.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    const std::string_view mark = Cut(text, '\n');
    const std::string_view check = Cut(text, '\n');
    if (check != HashText(text)) {
        return std::nullopt;
    }
    Entry entry;
    entry.watches = mark == "w";
    const bool numbersAreRight = posix::Read(Cut(text, ' '), 10, entry.order) &&
                                 ReadIdentity(Cut(text, ' '), entry.identity) &&
                                 posix::Read(Cut(text, ' '), 10, entry.pid);
    entry.announced = Cut(text, '\n') == "a";
    entry.host = Cut(text, '\n');
    entry.name = text;
    return numbersAreRight ? std::optional(std::move(entry)) : std::nullopt;
}

/// In one piece, into an empty file.
bool LockFile::Write(const Entry& entry) const {
    const std::string text =
        fmt::format("{} {} {} {}\n{}\n{}", entry.order, TextOf(entry.identity), entry.pid,
                    entry.announced ? 'a' : 'h', entry.host.substr(0, entry.host.find('\n')), entry.name);
    const std::string content = fmt::format("{}\n{}\n{}", entry.watches ? 'w' : '-', HashText(text), text);
    errno = ENOSPC;  // should only a part of it find room
    return Retried([&] { return ftruncate(m_file.Get(), 0); }) == 0 &&
           Retried([&] { return pwrite(m_file.Get(), content.data(), content.size(), 0); }) ==
               std::ssize(content);
}

bool LockFile::MarkWatcher() const {
    return Retried([&] { return pwrite(m_file.Get(), "w", 1, 0); }) == 1;
}

}  // namespace zyl::backbone::system::posix
