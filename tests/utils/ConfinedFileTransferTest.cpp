// What the other applications may reach of an engine's files: SetAllowedRoots.

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "FileTransferFixture.h"

namespace fs = std::filesystem;

namespace {

/// One of the applications S and T is confined. Links lead to the job of each from beside and from within.
class ConfinedFileTransfer : public FileTransfer {
  protected:
    ConfinedFileTransfer() {
        for (const std::string name : {"S", "T"}) {
            const std::string base = Add(name, 1).m_base;
            for (const char* made : {"/job/inside", "/other", "/job-2"}) {
                fs::create_directory(base + made);
            }
            fs::create_directory_symlink("job", base + "/link");
            fs::create_directory_symlink("../other", base + "/job/out-of-it");
            fs::create_directory_symlink("inside", base + "/job/within-it");
        }
    }

    int Allow(const std::string& name, std::vector<std::string> roots) {
        std::vector<const char*> pointers;
        for (std::string& root : roots) {
            root = m_directory / (name + root);
            pointers.push_back(root.c_str());
        }
        return As(name).SetAllowedRoots(pointers.data(), static_cast<int>(pointers.size()));
    }

    /// Copies `source` to `target` by `operation`; gives the lines of both logs that tell of a refusal.
    std::string Refusals(Operation operation, const std::string& source, const std::string& target) {
        Run(operation, source, target);
        std::istringstream lines(Log("S") + Log("T"));
        std::string refusals;
        for (std::string line; std::getline(lines, line);) {
            if (line.find("refused") != std::string::npos || line.find("cannot") != std::string::npos) {
                refusals += line + "\n";
            }
        }
        return refusals;
    }
};

TEST_F(ConfinedFileTransfer, OthersReachOnlyWhatLiesInTheAllowedDirectories) {
    const struct {
        std::string root, path;
        bool isAllowed;
    } cases[] = {
        {"/job", "f", true},
        {"/job/", "inside/f", true},
        {"/job", "within-it/f", true},
        {"", "f", true},
        {"/link", "../link/f", true},
        {"/job", "../other/f", false},
        {"/job", "../job-2/f", false},
        {"/job", "out-of-it/f", false},
        {"/job", "../link/f", false},
        {"/link", "f", false},
        {"/other", "out-of-it/f", false},
        {"/job", "/nowhere/f", false},
    };
    for (const auto& [root, path, isAllowed] : cases) {
        for (const std::string confined : {"S", "T"}) {
            SCOPED_TRACE(confined + root + " " + path);
            Add("S", 1);
            Add("T", 1);
            EXPECT_EQ(Allow(confined, {root}), 0);
            const fs::path file = fs::path(m_directory / confined + "/job") / path;
            std::string copied;
            if (confined == "S") {
                Write(file, Pattern(70'000));
                EXPECT_EQ(Refusals(kReceiveFile, path, "copy").empty(), isAllowed);
                copied = Read(m_directory / "T/job/copy");
            } else {
                Write(In(), Pattern(70'000));
                fs::remove(file);
                EXPECT_EQ(Refusals(kISendFile, "in", path).empty(), isAllowed);
                EXPECT_EQ(fs::exists(file), isAllowed);
                copied = Read(file);
            }
            EXPECT_TRUE(copied == (isAllowed ? Pattern(70'000) : ""));
        }
    }
}

TEST_F(ConfinedFileTransfer, ARefusalLeavesOneLineAndTheTransferEnds) {
    Write(m_directory / "S/other/secret", "secret");
    Write(m_directory / "T/other/kept", "kept");
    EXPECT_EQ(Allow("S", {"/job", "/job-2"}) + Allow("T", {}), 0);  // T names its own target, unconfined
    EXPECT_EQ(
        Refusals(kReceiveFile, "../other/secret", "out"),
        "ZYLMsgFileTransfer: refused to read file /S/other/secret as another application asks: it is not in "
        "an allowed directory\n");
    EXPECT_EQ(TakeSteps(), "S:1 T:5 ");
    EXPECT_EQ(Read(Out()), "");
    Add("S");
    Write(In(), Pattern(131072));
    EXPECT_EQ(Allow("T", {"/job"}) + Allow("S", {}), 0);
    EXPECT_EQ(
        Refusals(kSendFile, "in", "../other/kept"),
        "ZYLMsgFileTransfer: refused to write file /T/other/kept as another application asks: it is not in "
        "an allowed directory\n");
    EXPECT_EQ(TakeSteps(), "T:2 T:3#1x65536 T:3#2x65536 T:4 S:6 ");
    EXPECT_EQ(Read(m_directory / "T/other/kept"), "kept");
}

TEST_F(ConfinedFileTransfer, DirectoriesAreFoundAtTheCallAndReplacedByTheNext) {
    const std::ptrdiff_t openBefore = OpenDescriptors();
    Write(In(), "abc");
    EXPECT_EQ(Allow("T", {"/missing", "/job", "/job"}), -1);
    EXPECT_EQ(OpenDescriptors(), openBefore + 1);
    fs::rename(m_directory / "T/job", m_directory / "T/moved");
    fs::create_directory_symlink("other", m_directory / "T/job");
    EXPECT_EQ(Refusals(kSendFile, "in", "f"),
              "ZYLMsgFileTransfer: cannot allow directory /T/missing: No such file or directory\n");
    EXPECT_EQ(Read(m_directory / "T/moved/f"), "abc");
    Allow("T", {});
    EXPECT_EQ(OpenDescriptors(), openBefore);
    Run(kSendFile, "in", "g");
    EXPECT_THAT(Log("T"), testing::HasSubstr("refused to write file /T/job/g"));
}

}  // namespace
