#include "ZYLMsgPathExplorer.h"

#include <gtest/gtest.h>

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
    const ZYLString base = Text(directory.Path()), there = Text(directory / "job"), none, job = Text("job");
    const ZYLString name = Text("results");
    const fs::path stamp = directory / "job/results.stamp";
    EXPECT_EQ(Explorer::StampPath(base, job, name), 0) << "no directory";
    fs::create_directory(directory / "job");
    std::ofstream(stamp) << "left over";
    EXPECT_EQ(Explorer::StampPath(base, job, name), 0);
    EXPECT_EQ(fs::file_size(stamp), 0U);
    EXPECT_TRUE(Explorer::IsSharedPath(there, none, name));
    EXPECT_FALSE(Explorer::IsSharedPath(base, none, name) || Explorer::IsSharedPath(base, Text("no"), name));
    EXPECT_EQ(Explorer::RemoveStampFile(there, none, name), 0);
    EXPECT_FALSE(fs::exists(stamp) || Explorer::IsSharedPath(base, job, name));
}

}  // namespace
