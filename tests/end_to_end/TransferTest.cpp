// Whole files between real processes, in all three ways.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "Application.h"
#include "Soak.h"
#include "ZYLMsgBBAPI.h"

using ::testing::HasSubstr;

namespace {

constexpr std::size_t kSizes[] = {0, 1, 65535, 65536, 65537, 5 << 20};
/// Of a file that is more than can be on its way.
constexpr std::size_t kLarge = 32 << 20;

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

TEST_F(EndToEnd, AFileSentOntoItselfKeepsItsBytes) {
    const std::string directory = m_directory.Path();
    const char* const here = directory.c_str();
    MakeFile(m_directory / "file", kLarge);
    const std::string bytes = FileBytes(m_directory / "file");
    std::filesystem::create_symlink("file", m_directory / "link");
    Process passive([] {
        Application("passive").ListenUntilDone();
        return 0;
    });
    Process active([&] {
        Application me("active");
        me.files.ISendFile("active", here, "", "file", "passive", here, "", "file");
        me.files.SendFile("active", here, "", "file", "passive", here, "", "link");
        Tell(me.files.LastOutcome().text.GetUTF8());
        me.files.ReceiveFile("active", here, "", "link", "active", here, "", "file");
        Tell(me.files.LastOutcome().text.GetUTF8());
        Application::Say("passive", "done");
        return 0;
    });
    EXPECT_EQ(active.Wait(), "status 0") << active.Output();
    EXPECT_EQ(passive.Wait(), "status 0") << passive.Output();
    EXPECT_TRUE(FileBytes(m_directory / "file") == bytes);
    const std::string atFile = "cannot open file " + m_directory / "file" + ": it is being sent";
    const std::string atLink = "cannot open file " + m_directory / "link" + ": it is being sent";
    EXPECT_THAT(passive.Output(), AllOf(HasSubstr(atFile), HasSubstr(atLink)));
    EXPECT_THAT(active.Output(), AllOf(HasSubstr("\n" + atFile), HasSubstr("passive reports: " + atLink)));
}

/// Tells the engine of each lost peer.
struct Survivor {
    explicit Survivor(const char* name, ZYLMsgBBMessageHandler* texts = nullptr, int verbosity = 0)
        : me(name, &losses, texts, verbosity) {}
    const Losses losses{
        [this](int, const std::string& application) { me.files.ApplicationLost(application.c_str()); }};
    Application me;
};

TEST_F(EndToEnd, APeerKilledInMidFileEndsTheTransferAndANewLifeGoesOn) {
    const std::string directory = m_directory.Path();
    MakeFile(m_directory / "file", kLarge);
    ASSERT_EQ(mkfifo((m_directory / "gate").c_str(), 0600), 0);
    const auto send = [&](bool isHalted) {
        Survivor source("source", nullptr, isHalted ? 4 : 0);
        if (isHalted) {
            Application::Say("target", "halt");
        }
        source.me.files.SendFile("source", directory.c_str(), "", "file", "target", directory.c_str(), "",
                                 "copy");
        const ZYLMsgFileTransferOutcome& outcome = source.me.files.LastOutcome();
        Tell(outcome.ok ? "whole" : outcome.text.GetUTF8());
        if (!outcome.ok) {
            source.me.files.ReceiveFile("target", directory.c_str(), "", "copy", "source", directory.c_str(),
                                        "", "back");
            Tell(outcome.text.GetUTF8());
        }
        return 0;
    };
    Process target([&] {
        // Halts at each text until the gate is opened: a file that is being sent to it does not go on.
        Survivor self("target", new Texts([&](const std::string&, const std::string&) {
                          std::ifstream(m_directory / "gate").get();
                      }));
        ZYLMsgBBAPI::WaitingLoop(Domain(), -1, self.me.endingCondition);
        return 0;
    });
    Process killed([&] { return send(true); });
    killed.AwaitLine("::ReadChunk");
    killed.Kill(SIGKILL);
    EXPECT_EQ(killed.Wait(), "signal 9");
    std::ofstream(m_directory / "gate").close();
    Process again([&] { return send(false); });
    EXPECT_EQ(again.Wait(), "status 0");
    EXPECT_EQ(again.Output(), "whole\n");
    EXPECT_SAME_FILE(m_directory / "file", m_directory / "copy");
    Process bereaved([&] { return send(true); });
    bereaved.AwaitLine("::ReadChunk");
    target.Kill(SIGKILL);
    EXPECT_EQ(bereaved.Wait(), "status 0");
    EXPECT_THAT(bereaved.Output(), AllOf(HasSubstr("=target\napplication target was not there\n"),
                                         HasSubstr("opened file back\napplication target was not there\n")));
    EXPECT_EQ(target.Wait(), "signal 9");
    EXPECT_THAT(target.Output(), HasSubstr("/copy is incomplete: application source was lost after "));
}

}  // namespace
