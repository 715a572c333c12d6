#include "ZYLMsgPathExplorer.h"

#include <gmock/gmock.h>

#include <fstream>

#include "TemporaryDirectory.h"

namespace fs = std::filesystem;
using Explorer = ZYLMsgPathExplorer;

namespace {

ZYLString Text(const std::string& text) {
    return ZYLString::BuildFromUTF8(text.c_str());
}

TEST(PathExplorer, StampIsSeenByWhoeverNamesTheSameDirectory) {
    const TemporaryDirectory directory;
    fs::create_directory(directory.Path() / "job");
    const ZYLString base = Text(directory.Path()), there = Text(directory / "job"), none,
                    name = Text("results");
    const fs::path stamp = directory / "job/results.stamp";
    std::ofstream(stamp) << "left over";
    EXPECT_EQ(Explorer::FormPath(base, Text("job"), Text("results.stamp")), stamp.c_str());
    EXPECT_EQ(Explorer::FormPath(base, there, name), Explorer::FormPath(there, none, name));
    EXPECT_EQ(Explorer::StampPath(base, Text("job"), name), 0);
    EXPECT_EQ(fs::file_size(stamp), 0U);
    EXPECT_TRUE(Explorer::IsSharedPath(there, none, name));
    EXPECT_FALSE(Explorer::IsSharedPath(base, none, name) || Explorer::IsSharedPath(base, Text("no"), name));
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(Explorer::RemoveStampFile(there, none, name), 0);
        EXPECT_FALSE(fs::exists(stamp) || Explorer::IsSharedPath(base, Text("job"), name));
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(Explorer::StampPath(base, Text("missing"), Text("x")), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ZYLMsgPathExplorer: cannot create the stamp file " +
                                                          directory / "missing/x.stamp" +
                                                          ": No such file or directory\n");
}

}  // namespace
