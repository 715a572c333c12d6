#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "TemporaryDirectory.h"
#include "ZYLBasFileOps.h"
#include "ZYLBasUtlFilePath.h"
#include "ZYLCRuntime.h"

namespace {

constexpr int kRead = 0x8000;
constexpr int kWrite = 0x8302;

void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path) << bytes;
}

std::string ReadAndClose(int file) {
    std::string bytes(100, ' ');
    bytes.resize(static_cast<std::size_t>(_read(file, bytes.data(), 100)));
    _close(file);
    return bytes;
}

TEST(FilePath, NamesResolveAgainstTheirDirectoryAndDotDotIsText) {
    const std::string here = std::filesystem::current_path();
    const struct {
        const char* name;
        const char* directory;
        std::string expected;
    } cases[] = {
        {"c.txt", "/a/b", "/a/b/c.txt"}, {"/x/y", "/a", "/x/y"}, {"../../../c", "/a", "/c"},
        {"./b/./c", "/a/.", "/a/b/c"},   {"b///", "/a", "/a/b"}, {"x", "rel", here + "/rel/x"},
    };
    for (const auto& [name, directory, expected] : cases) {
        EXPECT_STREQ(ZYLBasUtlFilePath(name, directory).AbsolutePathName().CStr(), expected.c_str());
    }
    EXPECT_TRUE(ZYLBasUtlFilePath("", "/proc/self").Exists());
    EXPECT_FALSE(ZYLBasUtlFilePath("exe/below", "/proc/self").Exists());
}

TEST(FileOps, OpensForThisProgramAloneAndSetsErrnoWhereItRefuses) {
    const TemporaryDirectory directory;
    ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
    const int created = ZYLBasFileOps::Open((directory / "f").c_str(), kWrite, 0600);
    EXPECT_NE(fcntl(created, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(ReadAndClose(created), "");
    const struct {
        std::string path;
        int flags;
        int error;
    } cases[] = {
        {directory / "missing", kRead, ENOENT},     {directory / "no/f", kWrite, ENOENT},
        {directory / "fifo", kRead, ENOTSUP},       {directory / "fifo", kWrite, ENOTSUP},
        {directory.Path(), kRead, EISDIR},          {directory / "f", 0x0200, EINVAL},
        {directory / "f", kRead | 1 << 30, EINVAL},
    };
    for (const auto& [path, flags, error] : cases) {
        EXPECT_EQ(ZYLBasFileOps::Open(path.c_str(), flags, 0640), -1) << path << " " << flags;
        EXPECT_EQ(errno, error) << path << " " << flags;
    }
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
            EXPECT_EQ(file < 0 ? "" : ReadAndClose(file), error == 0 ? "root" : "") << path;
        }
    }
    EXPECT_FALSE(std::filesystem::exists(m_directory / "outside/new"));
    _close(m_root);
    m_root = ZYLBasFileOps::OpenDirectory("/proc/self");
    EXPECT_EQ(ZYLBasFileOps::OpenBeneath(m_root, "cwd/f", kRead, 0), -1);
    EXPECT_EQ(errno, ELOOP);
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
            EXPECT_EQ(ZYLBasFileOps::OpenBeneath(m_root, name, kWrite, 0640), -1) << name;
            EXPECT_EQ(errno, EBUSY);
        }
        ZYLBasFileOps::Release(holder);
        EXPECT_EQ(ReadAndClose(holder), "root");
    }
    EXPECT_EQ(ReadAndClose(ZYLBasFileOps::Open((root + "link").c_str(), kWrite, 0640)), "");
}

}  // namespace
