// What the other applications may reach of an engine's files: SetAllowedRoots.

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "FileTransferFixture.h"

namespace fs = std::filesystem;

namespace {

/// Application S has the file In(), T gets it as Out(), and one of both is confined. Links lead to the jobs
/// of both from beside and from within.
class ConfinedFileTransfer : public FileTransfer {
  protected:
    ConfinedFileTransfer() {
        for (const std::string name : {"S", "T"}) {
            Add(name, 1);
            fs::create_directory(m_directory / name + "/job/inside");
            fs::create_directory_symlink(name + "/job", m_directory / (name + "-link"));
            fs::create_directory_symlink("../other", m_directory / name + "/job/out-of-it");
            fs::create_directory_symlink("inside", m_directory / name + "/job/within-it");
            fs::create_directory(m_directory / name + "/other");
            fs::create_directory(m_directory / name + "/job-2");
        }
    }

    int Allow(const std::string& name, const std::vector<std::string>& roots) {
        std::vector<std::string> paths;
        std::vector<const char*> pointers;
        for (const std::string& root : roots) {
            paths.push_back(m_directory / (name + root));
        }
        for (const std::string& path : paths) {
            pointers.push_back(path.c_str());
        }
        return m_applications.at(name)->m_engine.SetAllowedRoots(pointers.data(),
                                                                 static_cast<int>(pointers.size()));
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
        {"-link", "../../@-link/f", true},
        {"/job", "../other/f", false},
        {"/job", "../job-2/f", false},
        {"/job", "out-of-it/f", false},
        {"/job", "../../@-link/f", false},
        {"-link", "f", false},
        {"/other", "out-of-it/f", false},
        {"/job", "/job/f", false},
    };
    for (const auto& [root, path, isAllowed] : cases) {
        for (const std::string confined : {"S", "T"}) {
            std::string name = path;
            if (const size_t at = name.find('@'); at != std::string::npos) {
                name.replace(at, 1, confined);
            }
            Add("S", 1);
            Add("T", 1);
            const bool isRead = confined == "S";
            const fs::path file = fs::path(m_directory / confined + "/job") / name;
            if (isRead && file.string().starts_with(m_directory.Path().string())) {
                Write(file, Pattern(70'000));
            } else if (!isRead) {
                Write(In(), Pattern(70'000));
                fs::remove(file);
            }
            EXPECT_EQ(Allow(confined, {root}), 0);
            const std::string refusals =
                isRead ? Refusals(kReceiveFile, name, "copy") : Refusals(kISendFile, "in", name);
            const fs::path copy = isRead ? fs::path(m_directory / "T/job/copy") : file;
            EXPECT_EQ(std::ranges::count(refusals, '\n'), isAllowed ? 0 : 1)
                << confined << root << ' ' << name;
            EXPECT_EQ(fs::exists(copy), isAllowed || isRead) << confined << root << ' ' << name;
            EXPECT_TRUE(Read(copy) == (isAllowed ? Pattern(70'000) : "")) << confined << root << ' ' << name;
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
