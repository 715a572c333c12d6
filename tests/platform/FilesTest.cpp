#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "TemporaryDirectory.h"
#include "ZYLBasFileOps.h"
#include "ZYLBasUtlFilePath.h"
#include "ZYLCRuntime.h"

static bool g_hasLocks = true;
static int g_refusedLocks = 0;

/// Stands in for the system's flock, to be a file system without locks, or one where somebody else has the
/// file locked for a while.
__attribute__((visibility("default"))) int Flock(int descriptor, int operation) __asm__("flock");
int Flock(int descriptor, int operation) {
    errno = g_refusedLocks > 0 ? EWOULDBLOCK : ENOLCK;
    if (g_refusedLocks > 0) {
        --g_refusedLocks;
        return -1;
    }
    return g_hasLocks ? static_cast<int>(syscall(SYS_flock, descriptor, operation)) : -1;
}

namespace {

constexpr int kRead = 0x8000;
constexpr int kWrite = 0x8302;

std::string Absolute(const std::string& name, const std::string& directory) {
    return ZYLBasUtlFilePath(name.c_str(), directory.c_str()).AbsolutePathName().CStr();
}

void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path) << bytes;
}

std::string ReadAndClose(int file) {
    std::string bytes(100, ' ');
    bytes.resize(static_cast<std::size_t>(_read(file, bytes.data(), 100)));
    _close(file);
    return bytes;
}

TEST(FilePathTest, NamesResolveAgainstTheirDirectory) {
    const std::string here = std::filesystem::current_path();
    const struct {
        const char* name;
        const char* directory;
        std::string expected;
    } cases[] = {
        {"c.txt", "/a/b", "/a/b/c.txt"},
        {"/x/y", "/a", "/x/y"},
        {"../c", "/a/b", "/a/c"},
        {"../../../c", "/a", "/c"},
        {"./b/./c", "/a/.", "/a/b/c"},
        {"b///", "/a", "/a/b"},
        {"b/..", "/a", "/a"},
        {"", "/a/b/", "/a/b"},
        {"/", "/a", "/"},
        {"//x", "", "/x"},
        {"x", "rel", here + "/rel/x"},
        {"\xC3\xA4\xFF", "/a", "/a/\xC3\xA4\xFF"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Absolute(c.name, c.directory), c.expected) << c.name << " in " << c.directory;
    }
}

TEST(FilePathTest, ExistsFollowsTheDiskButDotDotIsText) {
    const TemporaryDirectory directory;
    const auto exists = [&](const char* name) {
        return ZYLBasUtlFilePath(name, directory.Path().c_str()).Exists();
    };
    std::filesystem::create_directory_symlink("/usr/bin", directory / "link");
    std::filesystem::create_symlink("nowhere", directory / "dangling");
    WriteFile(directory / "f", "");
    EXPECT_EQ(Absolute("link/../x", directory.Path()), directory / "x");
    EXPECT_TRUE(exists("") && exists("f") && exists("link/../f"));
    EXPECT_FALSE(exists("dangling") || exists("f/below") || exists(std::string(5000, 'n').c_str()));
}

TEST(FilePathTest, RelativeNameWithoutACurrentDirectoryHasNoAbsolutePath) {
    const std::filesystem::path here = std::filesystem::current_path();
    {
        const TemporaryDirectory gone;
        std::filesystem::current_path(gone.Path());
    }
    const ZYLBasUtlFilePath path("x", "");
    EXPECT_STREQ(path.AbsolutePathName().CStr(), "");
    EXPECT_FALSE(path.Exists());
    EXPECT_EQ(Absolute("x", "/a"), "/a/x");
    std::filesystem::current_path(here);
}

TEST(FileOpsTest, CreatedFileHasTheGivenModeIsEmptiedOnReopenAndClosedOnExec) {
    const TemporaryDirectory directory;
    const std::string path = directory / "f";
    const mode_t mask = umask(0);
    const int created = ZYLBasFileOps::Open(path.c_str(), kWrite, 0640);
    umask(mask);
    ASSERT_GE(created, 0);
    struct stat status {};
    ASSERT_EQ(fstat(created, &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    EXPECT_NE(fcntl(created, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(_write(created, "bytes\r\n\x1A", 8), 8);
    EXPECT_EQ(_close(created), 0);

    const int readOnly = ZYLBasFileOps::Open(path.c_str(), kRead, 0);
    EXPECT_EQ(_write(readOnly, "x", 1), -1);
    EXPECT_EQ(ReadAndClose(readOnly), "bytes\r\n\x1A");
    EXPECT_EQ(ReadAndClose(ZYLBasFileOps::Open(path.c_str(), kWrite, 0640)), "");
}

TEST(FileOpsTest, RefusedOpensSetErrno) {
    const TemporaryDirectory directory;
    ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
    std::fclose(std::fopen((directory / "f").c_str(), "w"));
    const struct {
        std::string path;
        int flags;
        int error;
    } cases[] = {
        {directory / "missing", kRead, ENOENT},     {directory / "no/f", kWrite, ENOENT},
        {directory / "fifo", kRead, ENOTSUP},       {directory / "fifo", kWrite, ENOTSUP},
        {directory.Path(), kRead, EISDIR},          {directory.Path(), kWrite, EISDIR},
        {directory / "f", kRead | 0x0400, EINVAL},  {directory / "f", 0x0200, EINVAL},
        {directory / "f", kRead | 1 << 30, EINVAL}, {"", kRead, ENOENT},
    };
    for (const auto& c : cases) {
        errno = 0;
        EXPECT_EQ(ZYLBasFileOps::Open(c.path.c_str(), c.flags, 0640), -1) << c.path << " " << c.flags;
        EXPECT_EQ(errno, c.error) << c.path << " " << c.flags;
    }
    EXPECT_FALSE(std::filesystem::exists(directory / "missing"));
}

/// A directory "root" to stay in, held open as m_root, beside a directory "outside". Each has a file "f" that
/// holds the directory's name.
class FilesBeneath : public testing::Test {
  protected:
    FilesBeneath() {
        for (const std::string name : {"root", "outside"}) {
            std::filesystem::create_directory(m_directory / name);
            WriteFile(m_directory / name + "/f", name);
        }
        m_root = ZYLBasFileOps::OpenDirectory((m_directory / "root").c_str());
    }
    ~FilesBeneath() override { _close(m_root); }

    TemporaryDirectory m_directory;
    int m_root;
};

TEST_F(FilesBeneath, NoPathLeadsOutOfTheDirectory) {
    const std::string root = m_directory / "root/";
    std::filesystem::create_directory(root + "deep");
    std::filesystem::create_symlink("../f", root + "deep/inner");
    std::filesystem::create_symlink("../../outside", root + "deep/outer");
    std::filesystem::create_symlink("../outside/f", root + "file");
    std::filesystem::create_symlink("../outside/new", root + "dangling");
    std::filesystem::create_symlink(root + "f", root + "absolute");
    std::filesystem::create_symlink("loop", root + "loop");
    const struct {
        std::string path;
        int error;
    } cases[] = {
        {"f", 0},
        {"deep/inner", 0},
        {"deep/outer/f", EXDEV},
        {"file", EXDEV},
        {"dangling", EXDEV},
        {"absolute", EXDEV},
        {"../outside/f", EXDEV},
        {root + "f", EXDEV},
        {"loop", ELOOP},
        {".", EISDIR},
        {"missing/f", ENOENT},
    };
    for (const int flags : {kRead, 0x8102}) {
        for (const auto& [path, error] : cases) {
            const int file = ZYLBasFileOps::OpenBeneath(m_root, path.c_str(), flags, 0640);
            EXPECT_EQ(file < 0 ? errno : 0, error) << path;
            if (error == 0) {
                EXPECT_EQ(ReadAndClose(file), "root") << path;
            } else {
                EXPECT_EQ(file, -1) << path;
            }
        }
    }
    EXPECT_FALSE(std::filesystem::exists(m_directory / "outside/new"));
    const int self = ZYLBasFileOps::OpenDirectory("/proc/self");
    EXPECT_EQ(ZYLBasFileOps::OpenBeneath(self, "cwd/f", kRead, 0), -1);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(ZYLBasFileOps::OpenBeneath(self, "comm", 1 << 30, 0), -1);
    EXPECT_EQ(errno, EINVAL);
    _close(self);
}

TEST_F(FilesBeneath, NothingOutsideIsOpenedWhileADirectoryIsExchangedForALink) {
    const std::string directory = m_directory / "root/d";
    const std::string link = m_directory / "root/l";
    std::filesystem::create_directory(directory);
    WriteFile(directory + "/f", "root");
    std::filesystem::create_symlink("../outside", link);
    std::atomic<bool> done = false;
    std::thread exchanger([&] {
        while (!done) {
            renameat2(AT_FDCWD, directory.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE);
        }
    });
    int inside = 0;
    int refused = 0;
    for (int attempt = 0; attempt < 5000 || (inside * refused == 0 && attempt < 100000); ++attempt) {
        const int file = ZYLBasFileOps::OpenBeneath(m_root, "d/f", attempt % 2 == 0 ? kRead : kWrite, 0640);
        if (file < 0) {
            EXPECT_TRUE(errno == EXDEV || errno == EAGAIN) << errno;
            ++refused;
        } else {
            _write(file, "root", 4);
            lseek(file, 0, SEEK_SET);
            EXPECT_EQ(ReadAndClose(file), "root");
            ++inside;
        }
    }
    done = true;
    exchanger.join();
    EXPECT_EQ(ReadAndClose(ZYLBasFileOps::Open((m_directory / "outside/f").c_str(), kRead, 0)), "outside");
}

TEST_F(FilesBeneath, WhatIsHeldIsNotEmptiedUnderAnyOfItsNames) {
    const std::string root = m_directory / "root/";
    std::filesystem::create_symlink("f", root + "link");
    std::filesystem::create_hard_link(root + "f", root + "other");
    const int holders[] = {ZYLBasFileOps::Open((root + "f").c_str(), kRead, 0),
                           ZYLBasFileOps::OpenBeneath(m_root, "other", kRead, 0)};
    ZYLBasFileOps::Hold(holders[0]);
    ZYLBasFileOps::Hold(holders[1]);
    for (const int holder : holders) {
        for (const char* name : {"f", "link", "other"}) {
            EXPECT_EQ(ZYLBasFileOps::Open((root + name).c_str(), kWrite, 0640), -1) << name;
            EXPECT_EQ(errno, EBUSY);
            EXPECT_EQ(ZYLBasFileOps::OpenBeneath(m_root, name, kWrite, 0640), -1) << name;
            EXPECT_EQ(errno, EBUSY);
        }
        ZYLBasFileOps::Release(holder);
        EXPECT_EQ(ReadAndClose(holder), "root");
    }
    // A program that has it locked for itself alone does not let go; one that empties it does.
    const int foreign = ZYLBasFileOps::Open((root + "f").c_str(), kRead, 0);
    ASSERT_EQ(flock(foreign, LOCK_EX), 0);
    EXPECT_EQ(ZYLBasFileOps::Open((root + "link").c_str(), kWrite, 0640), -1);
    EXPECT_EQ(errno, ENOLCK);
    EXPECT_EQ(ReadAndClose(foreign), "root");
    g_refusedLocks = 4;
    EXPECT_EQ(ReadAndClose(ZYLBasFileOps::Open((root + "link").c_str(), kWrite, 0640)), "");
    EXPECT_EQ(g_refusedLocks, 0);
    g_hasLocks = false;
    EXPECT_EQ(ReadAndClose(ZYLBasFileOps::Open((root + "link").c_str(), kWrite, 0640)), "");
    g_hasLocks = true;
    EXPECT_EQ(ReadAndClose(ZYLBasFileOps::Open((root + "link").c_str(), kWrite, 0640)), "");
}

TEST(CRuntimeTest, WriteGoesOnThroughFullPipesAndInterruptions) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    struct sigaction interrupt {};
    interrupt.sa_handler = [](int) {};
    sigaction(SIGUSR1, &interrupt, nullptr);

    constexpr unsigned kBytes = 1 << 20;
    const std::string sent(kBytes, 's');
    std::size_t received = 0;
    const pthread_t writer = pthread_self();
    std::thread reader([&] {
        std::string buffer(1000, ' ');
        while (received < kBytes) {
            pthread_kill(writer, SIGUSR1);
            received += static_cast<std::size_t>(_read(ends[0], buffer.data(), 1000));
        }
    });
    EXPECT_EQ(_write(ends[1], sent.data(), kBytes), static_cast<int>(kBytes));
    reader.join();
    EXPECT_EQ(received, kBytes);
    _close(ends[0]);
    _close(ends[1]);
    EXPECT_EQ(_write(ends[1], nullptr, 0x80000000U), -1);
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
