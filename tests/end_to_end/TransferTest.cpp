// Whole files between real processes, in all three ways.

#include <filesystem>

#include "Application.h"
#include "Process.h"

namespace {

constexpr std::size_t kSizes[] = {0, 1, 65535, 65536, 65537, 5 << 20};

/// A transfer between the application "active", which starts it, and "passive".
struct Flow {
    const char* name;
    void (*start)(ZYLMsgFileTransfer& files, const char* from, const char* to, const char* file);
};

void PrintTo(const Flow& flow, std::ostream* out) {
    *out << flow.name;
}

const Flow kFlows[] = {
    {"SendFile",
     [](ZYLMsgFileTransfer& files, const char* from, const char* to, const char* file) {
         files.SendFile("active", from, "in", file, "passive", to, "out", file);
     }},
    {"ISendFile",
     [](ZYLMsgFileTransfer& files, const char* from, const char* to, const char* file) {
         files.ISendFile("active", from, "in", file, "passive", to, "out", file);
     }},
    {"ReceiveFile",
     [](ZYLMsgFileTransfer& files, const char* from, const char* to, const char* file) {
         files.ReceiveFile("passive", from, "in", file, "active", to, "out", file);
     }},
};

class Transfer : public EndToEnd, public ::testing::WithParamInterface<Flow> {};

TEST_P(Transfer, CopiesFilesOfEverySizeByteForByte) {
    const std::string from = m_directory / "from";
    const std::string to = m_directory / "to";
    for (const std::size_t size : kSizes) {
        MakeFile(from + "/in/" + std::to_string(size), size);
    }
    std::filesystem::create_directories(to + "/out");
    Process passive([] {
        Application("passive").ListenUntilDone();
        return 0;
    });
    Process active([&] {
        Application me("active");
        for (const std::size_t size : kSizes) {
            GetParam().start(me.files, from.c_str(), to.c_str(), std::to_string(size).c_str());
        }
        Application::Say("passive", "done");
        return 0;
    });
    EXPECT_EQ(active.Wait(), "status 0") << active.Output();
    EXPECT_EQ(passive.Wait(), "status 0") << passive.Output();
    for (const std::size_t size : kSizes) {
        EXPECT_SAME_FILE(from + "/in/" + std::to_string(size), to + "/out/" + std::to_string(size));
    }
}

INSTANTIATE_TEST_SUITE_P(EachFlow, Transfer, ::testing::ValuesIn(kFlows),
                         [](const auto& flow) { return flow.param.name; });

TEST_F(EndToEnd, OneTargetReceivesFromTwoSourcesAtOnce) {
    const std::string sources[] = {"left", "right"};
    for (const std::string& source : sources) {
        for (const char* file : {"/1", "/2", "/3"}) {
            MakeFile(m_directory / source + file, (5 << 20) + 1);
        }
        std::filesystem::create_directory(m_directory / ("from " + source));
    }
    Process target([&] {
        Application me("target");
        me.ListenUntilDone(2);
        for (const std::string& source : sources) {
            Application::Say(source, "done");
        }
        me.ListenUntilDone(4);
        return 0;
    });
    const auto send = [&](const std::string& source) {
        Application me(source);
        Application::Say("target", "done");
        me.ListenUntilDone();  // both are there
        const std::string from = m_directory / source;
        const std::string to = m_directory / ("from " + source);
        me.files.ISendFile(source.c_str(), from.c_str(), "", "1", "target", to.c_str(), "", "1");
        me.files.SendFile(source.c_str(), from.c_str(), "", "2", "target", to.c_str(), "", "2");
        me.files.ISendFile(source.c_str(), from.c_str(), "", "3", "target", to.c_str(), "", "3");
        Application::Say("target", "done");
        return 0;
    };
    Process left([&] { return send("left"); });
    Process right([&] { return send("right"); });
    EXPECT_EQ(left.Wait(), "status 0") << left.Output();
    EXPECT_EQ(right.Wait(), "status 0") << right.Output();
    EXPECT_EQ(target.Wait(), "status 0") << target.Output();
    for (const std::string& source : sources) {
        for (const char* file : {"/1", "/2", "/3"}) {
            EXPECT_SAME_FILE(m_directory / source + file, m_directory / ("from " + source) + file);
        }
    }
}

}  // namespace
