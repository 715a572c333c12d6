#include <gmock/gmock.h>

#include <fstream>

#include "TemporaryDirectory.h"
#include "ZYLMsgPathExplorer.h"

namespace fs = std::filesystem;

namespace {

ZYLString Text(const std::string& text) {
    return ZYLString::BuildFromUTF8(text.c_str());
}

std::string FormPath(const char* baseDir, const char* jobDir, const char* fileName) {
    return ZYLMsgPathExplorer::FormPath(Text(baseDir), Text(jobDir), Text(fileName)).GetUTF8();
}

TEST(PathExplorer, JobDirectoryLiesInBaseDirectoryAndFileInBoth) {
    EXPECT_EQ(FormPath("/scratch", "job12", "model.dat"), "/scratch/job12/model.dat");
    EXPECT_EQ(FormPath("/a", "/b", "c.txt"), "/b/c.txt");
    EXPECT_EQ(FormPath("/a", "b", "/c.txt"), "/c.txt");
    EXPECT_EQ(FormPath("a", "b", "c.txt"), fs::current_path().string() + "/a/b/c.txt");
}

TEST(PathExplorer, StampIsSeenByWhoeverNamesTheSameDirectory) {
    const TemporaryDirectory directory;
    fs::create_directory(directory.Path() / "job");
    const ZYLString base = Text(directory.Path().string());
    const ZYLString there = Text(directory / "job");
    const fs::path stamp = directory / "job/results.stamp";
    std::ofstream(stamp) << "left over";
    EXPECT_EQ(ZYLMsgPathExplorer::StampPath(base, Text("job"), Text("results")), 0);
    EXPECT_EQ(fs::file_size(stamp), 0U);
    EXPECT_TRUE(ZYLMsgPathExplorer::IsSharedPath(there, ZYLString(), Text("results")));
    EXPECT_FALSE(ZYLMsgPathExplorer::IsSharedPath(base, ZYLString(), Text("results")));
    EXPECT_FALSE(ZYLMsgPathExplorer::IsSharedPath(base, Text("missing"), Text("results")));
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(ZYLMsgPathExplorer::RemoveStampFile(there, ZYLString(), Text("results")), 0);
        EXPECT_FALSE(fs::exists(stamp));
        EXPECT_FALSE(ZYLMsgPathExplorer::IsSharedPath(base, Text("job"), Text("results")));
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(ZYLMsgPathExplorer::StampPath(Text(directory.Path().string()), Text("missing"), Text("x")), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ZYLMsgPathExplorer: cannot create the stamp file " +
                                                          directory / "missing/x.stamp" +
                                                          ": No such file or directory\n");
}

}  // namespace
