// The programs that users run and copy: the examples, the command-line program and the text of the README.

#include <gmock/gmock.h>
#include <signal.h>

#include <filesystem>

#include "Application.h"
#include "Process.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

std::string Program(const std::string& name) {
    return std::string(ZYL_PROGRAMS) + "/" + name;
}

TEST_F(EndToEnd, TheHelloExamplesMeet) {
    Process sender({Program("hello_sender")});
    Process receiver({Program("hello_receiver")});
    receiver.AwaitLine("id sender");
    receiver.AwaitLine("   size: 6");
    receiver.AwaitLine("   data[5]: !");
    EXPECT_EQ(sender.Wait(), "status 0") << sender.Output();
}

TEST_F(EndToEnd, TheReadmeShowsTheHelloExamples) {
    const std::string readme = FileBytes(ZYL_SOURCES "/README.md");
    for (const char* example : {"hello_receiver.cpp", "hello_sender.cpp"}) {
        EXPECT_THAT(readme, HasSubstr(FileBytes(ZYL_SOURCES "/examples/" + std::string(example))));
    }
}

/// The analysis of the examples, with a small model.
class Analysis : public EndToEnd {
  protected:
    Analysis() { MakeFile(m_job + "/monitor/model.dat", 200'000); }

    std::vector<std::string> Launch(const std::vector<std::string>& options = {}) const {
        std::vector<std::string> command{Program("launcher"), m_job};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    void ExpectAllFilesCopied() const {
        for (const char* file : {"/model.dat", "/restart.dat", "/result.dat", "/warnings.log"}) {
            EXPECT_SAME_FILE(m_job + "/monitor" + file, m_job + "/solver" + file);
        }
        EXPECT_EQ(FileBytes(m_job + "/monitor/result.dat").size(), 200'000U);
        EXPECT_EQ(FileBytes(m_job + "/monitor/warnings.log").size(), 0U);
    }

    std::string m_job = m_directory / "job";
};

TEST_F(Analysis, RunsToItsEnd) {
    Process launcher(Launch());
    EXPECT_EQ(launcher.Wait(), "status 0");
    for (const char* line :
         {"HandleMessage -- id solver\n", "HandleMessage -- id relay\n", "monitor: solver: Progress 50 %",
          "monitor: solver: Finished 100 %", "solver: finished at 100 %\n",
          "monitor: the solver has gone at 100 %: Finished\n"}) {
        EXPECT_THAT(launcher.Output(), HasSubstr(line));
    }
    ExpectAllFilesCopied();
}

TEST_F(Analysis, StopsCleanlyWhenTheMonitorAsksForIt) {
    Process launcher(Launch({"--stop-at=40", "--pause-at=50"}));
    EXPECT_EQ(launcher.Wait(), "status 0");
    for (const char* line : {"monitor: asks solver to stop\n", "solver: SOFT_KILL from monitor\n",
                             "solver: stopped cleanly at ", "%: Stopped\n"}) {
        EXPECT_THAT(launcher.Output(), HasSubstr(line));
    }
    EXPECT_THAT(launcher.Output(), Not(HasSubstr("Progress 60 %")));
    ExpectAllFilesCopied();
}

TEST_F(Analysis, EndsForTheMonitorWhenTheSolverIsKilled) {
    Process launcher(Launch({"--pause-at=50"}));
    const std::string line = launcher.AwaitLine("launcher: solver is process ");
    launcher.AwaitLine("monitor: solver: Progress 50 %");
    kill(std::stoi(line.substr(line.rfind(' '))), SIGKILL);
    EXPECT_EQ(launcher.Wait(), "status 1");
    for (const char* text : {"launcher: solver ended with signal 9\n", "Exit Handler -- confirm exit\n",
                             "monitor: the solver has gone at 50 %: lost\n"}) {
        EXPECT_THAT(launcher.Output(), HasSubstr(text));
    }
}

/// The command-line program in the domain of the tests' roles.
std::vector<std::string> Zylmsg(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{Program("zylmsg"), "--domain", "job", "--as", "operator"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

TEST_F(EndToEnd, ZylmsgSendsStringsAndKillsThatZylmsgPrints) {
    Process listener({Program("zylmsg"), "--domain", "job", "listen", "me", "--count", "3"});
    const struct {
        std::vector<std::string> arguments;
        const char* lastLine;
    } operations[] = {
        {{"send", "me", "Hi!"}, "data[2]: !"},
        {{"kill", "me"}, ">SOFT_KILL</Kill>"},
        {{"kill", "--hard", "me"}, ">HARD_KILL</Kill>"},
    };
    for (const auto& [arguments, lastLine] : operations) {
        Process operation(Zylmsg(arguments));
        EXPECT_EQ(operation.Wait(), "status 0") << operation.Output();
        EXPECT_EQ(operation.Output(), "");
        listener.AwaitLine(lastLine);  // nothing orders the messages of different processes
    }
    EXPECT_EQ(listener.Wait(), "status 0");
    const std::string head = "ZYLMsgPrintingHandler::HandleMessage -- id operator\nMessage Type: ";
    const std::string kill = head +
                             "ZYLMsgProcessControlType\n   Content: <?xml version=\"1.0\" "
                             "encoding=\"utf-8\"?><Kill type=\"symconst\">";
    EXPECT_EQ(listener.Output(), head + "ZYLMsgStringType\n   size: 3\n   data[0]: H\n   data[2]: !\n" +
                                     kill + "SOFT_KILL</Kill>\n" + kill + "HARD_KILL</Kill>\n");
}

TEST_F(EndToEnd, ZylmsgPutsAFileAndWaitsForTheConfirmation) {
    MakeFile(m_directory / "here/data", 70'000);
    const std::string there = m_directory / "there";
    std::filesystem::create_directory(there);
    Process target([] {
        Application("target").ListenUntilDone();
        return 0;
    });
    Process put(Zylmsg({"put", m_directory / "here/data", "target", there}));
    EXPECT_EQ(put.Wait(), "status 0") << put.Output();
    EXPECT_SAME_FILE(m_directory / "here/data", there + "/data");
    Process done(Zylmsg({"send", "target", "done"}));
    EXPECT_EQ(target.Wait(), "status 0");
    EXPECT_EQ(target.Output(), "operator: done\n");
}

TEST_F(EndToEnd, ZylmsgPutEndsWhenTheTargetIsKilledBeforeItConfirms) {
    MakeFile(m_directory / "data", 10);
    Process target({Program("zylmsg"), "--domain", "job", "listen", "target"});
    Process put(Zylmsg({"put", m_directory / "data", "target"}));
    target.AwaitLine("id operator");
    target.Kill(SIGKILL);
    EXPECT_EQ(put.Wait(), "status 3");
    EXPECT_THAT(put.Output(), HasSubstr("gone before it confirmed the file"));
}

TEST_F(EndToEnd, ZylmsgTellsByItsStatusWhatFailed) {
    setenv("ZYL_BACKBONE_CONNECT_TIMEOUT", "0.1", 1);
    MakeFile(m_directory / "data", 10);
    const struct {
        std::vector<std::string> arguments;
        const char* status;
        const char* text;
    } cases[] = {
        {{}, "status 2", "subcommand is required"},
        {{"send", "nobody"}, "status 2", "text is required"},
        {{"listen", "me", "--count", "0"}, "status 2", "--count"},
        {{"--help"}, "status 0", "Subcommands:"},
        {{"send", "nobody", "text"}, "status 3", "is dropped: it did not come in time"},
        {{"kill", "nobody"}, "status 3", "is dropped: it did not come in time"},
        {{"put", m_directory / "data", "nobody"}, "status 3", "nobody has not come"},
        {{"put", m_directory / "missing", "nobody"}, "status 4", "No such file"},
        {{"put", m_directory.Path(), "nobody"}, "status 4", "no readable regular file"},
    };
    for (const auto& [arguments, status, text] : cases) {
        Process zylmsg(Zylmsg(arguments));
        EXPECT_EQ(zylmsg.Wait(), status) << zylmsg.Output();
        EXPECT_THAT(zylmsg.Output(), HasSubstr(text));
    }
}

}  // namespace
