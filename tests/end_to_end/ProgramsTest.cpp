// The programs that users run and copy: the examples, the command-line program and the text of the README.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <tuple>

#include "Application.h"
#include "EnvelopeLine.h"
#include "Process.h"

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

std::string Program(const std::string& name) {
    return std::string(ZYL_PROGRAMS) + "/" + name;
}

TEST_F(WithProcesses, TheHelloExamplesMeetAndStandInTheReadme) {
    Process sender({Program("hello_sender")});
    Process receiver({Program("hello_receiver")});
    receiver.AwaitLine("sender says: Hello!");
    EXPECT_EQ(sender.Wait(), "status 0") << sender.Output();
    const std::string readme = FileBytes(ZYL_SOURCES "/README.md");
    for (const char* example : {"hello_receiver.cpp", "hello_sender.cpp"}) {
        EXPECT_THAT(readme, HasSubstr(FileBytes(ZYL_SOURCES "/examples/" + std::string(example))));
    }
}

/// The analysis of the examples, with a small model.
class Analysis : public WithProcesses {
  protected:
    Analysis() { MakeFile(m_job + "/monitor/model.dat", 200'000); }

    std::vector<std::string> Launch(const std::vector<std::string>& options) const {
        std::vector<std::string> command{Program("launcher"), m_job};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    /// Waits until it pauses at 50 percent.
    static pid_t PausingSolver(Process& launcher) {
        const std::string line = launcher.AwaitLine("launcher: solver is process ");
        launcher.AwaitLine(" solver ProgressMessage (28 bytes): 50 %,");
        return std::stoi(line.substr(line.rfind(' ')));
    }

    static void ExpectAllFilesCopied(const std::string& job, std::size_t size) {
        for (const char* file : {"/model.dat", "/restart.dat", "/result.dat", "/warnings.log"}) {
            EXPECT_SAME_FILE(job + "/monitor" + file, job + "/solver" + file);
        }
        EXPECT_EQ(FileBytes(job + "/monitor/result.dat").size(), size);
        EXPECT_EQ(FileBytes(job + "/monitor/warnings.log").size(), 0U);
    }

    std::string m_job = m_directory / "job";
};

TEST_F(Analysis, RunsToItsEndBesideAnotherThatTheMonitorStopsAndNothingIsLeft) {
    const std::string other = m_directory / "other";
    MakeFile(other + "/monitor/model.dat", 100'000);
    Process whole({Program("launcher"), other});
    Process stopped(Launch({"--stop-at=40", "--pause-at=50"}));
    const std::pair<Process*, std::vector<std::string>> launchers[] = {
        {&whole,
         {" solver ZYLMsgStringType (28 bytes): 'The solver says this itself.'\n",
          " relay ZYLMsgStringType (39 bytes): 'The solver says this through the relay.'\n",
          " solver ProgressMessage (28 bytes): 50 %, step 5, residual ",
          "'<Finished percent=\"100.000000\"/>'\n", "solver: finished at 100 %\n",
          "monitor: the solver has gone at 100 %: Finished\n"}},
        {&stopped,
         {"monitor: asks solver to stop\n", " monitor ZYLMsgProcessControlType (80 bytes): SOFT_KILL\n",
          "solver: stopped cleanly at ", "%: Stopped\n"}},
    };
    for (const auto& [launcher, lines] : launchers) {
        EXPECT_EQ(launcher->Wait(), "status 0");
        for (const std::string& line : lines) {
            EXPECT_THAT(launcher->Output(), HasSubstr(line));
        }
    }
    EXPECT_THAT(stopped.Output(), Not(HasSubstr(": 60 %,")));
    ExpectAllFilesCopied(other, 100'000);
    ExpectAllFilesCopied(m_job, 200'000);
    EXPECT_THAT(BackboneFiles(), IsEmpty());
}

TEST_F(Analysis, EndsForTheMonitorWhenTheSolverIsKilled) {
    Process launcher(Launch({"--pause-at=50"}));
    kill(PausingSolver(launcher), SIGKILL);
    EXPECT_EQ(launcher.Wait(), "status 1");
    for (const char* text :
         {"launcher: solver ended with signal 9\n", "monitor: Exit Handler -- confirm exit\n",
          "monitor: the solver has gone at 50 %: lost\n"}) {
        EXPECT_THAT(launcher.Output(), HasSubstr(text));
    }
}

TEST_F(Analysis, EndsWhenTheSolverIsKilledBeforeItHasMetAnybody) {
    std::filesystem::copy_file(Program("launcher"), m_directory / "launcher");
    for (const char* name : {"monitor", "relay"}) {
        std::filesystem::create_symlink(Program(name), m_directory / name);
    }
    std::ofstream(m_directory / "solver") << "#!/bin/sh\nkill -KILL $$\n";
    std::filesystem::permissions(m_directory / "solver", std::filesystem::perms::owner_all);
    Process launcher({m_directory / "launcher", m_job});
    EXPECT_EQ(launcher.Wait(), "status 1");
    EXPECT_THAT(launcher.Output(), AllOf(HasSubstr("launcher: solver ended with signal 9\n"),
                                         HasSubstr("launcher: relay ended with signal 15\n")));
}

TEST_F(Analysis, DoesNotOutliveItsLauncher) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    Process launcher(Launch({"--pause-at=50"}));
    const pid_t solver = PausingSolver(launcher);
    launcher.Kill(SIGKILL);
    EXPECT_EQ(launcher.Wait(), "signal 9");  // from then on, the solver is this process's child
    int status = 0;
    waitpid(solver, &status, 0);
    EXPECT_EQ(status, SIGTERM);
}

/// The command-line program in the domain of the tests' roles.
std::vector<std::string> Zylmsg(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{Program("zylmsg"), "--domain", "job", "--as", "operator"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

/// The lines without the time that each begins with.
std::string WithoutTimes(const std::string& lines) {
    return std::regex_replace(lines, std::regex("(^|\n)\\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d "), "$1");
}

TEST_F(WithProcesses, ZylmsgSendsStringsAndKillsThatZylmsgPrints) {
    Process listener({Program("zylmsg"), "listen", "me", "--domain", "job", "--count", "3"});
    const struct {
        std::vector<std::string> arguments;
        const char* line;
    } operations[] = {
        {{"send", "me", "Hi!\n"}, "ZYLMsgStringType (4 bytes): 'Hi!\\x0a'"},
        {{"kill", "me"}, "ZYLMsgProcessControlType (80 bytes): SOFT_KILL"},
        {{"kill", "--hard", "me"}, "ZYLMsgProcessControlType (80 bytes): HARD_KILL"},
    };
    std::string lines;
    for (const auto& [arguments, line] : operations) {
        Process operation(Zylmsg(arguments));
        EXPECT_EQ(operation.Wait(), "status 0") << operation.Output();
        EXPECT_EQ(operation.Output(), "");
        listener.AwaitLine(line);  // nothing orders the messages of different processes
        lines += std::string("operator ") + line + '\n';
    }
    EXPECT_EQ(listener.Wait(), "status 0");
    EXPECT_EQ(WithoutTimes(listener.Output()), lines);
}

TEST(EnvelopeLine, ShowsWhatNobodyKnowsAndWhatMakesNoSense) {
    using namespace std::string_literals;
    const std::string id = "\1\0\0\0x"s;
    const std::string longest(400, 'a');
    const std::string cut = "x ZYLMsgStringType (401 bytes): '" + longest + "...'";
    const struct {
        const char* type;
        std::string bytes;
        const char* line;
    } messages[] = {
        {"Strain", id + "\0\x7f\xff 0123456789abcdef"s,
         "x Strain (20 bytes): first bytes 00 7f ff 20 30 31 32 33 34 35 36 37 38 39 61 62 ..."},
        {"Bell\a", id, "x Bell\\x07 (0 bytes): no bytes"},
        {"ZYLMsgStringType", "", "? ZYLMsgStringType (0 bytes): no proper envelope, no bytes"},
        {"ZYLMsgStringType", "\2\0\0\0x"s,
         "? ZYLMsgStringType (5 bytes): no proper envelope, first bytes 02 00 00 00 78"},
        {"ZYLMsgStringType",
         id + "\\\t\x1b[2J \u00e4\u20ac\U0001f600 \xc2\x9b \xe0\x80\x80 \xf5\x80 \xe2\x82",
         "x ZYLMsgStringType (29 bytes): '\\\\\\x09\\x1b[2J \u00e4\u20ac\U0001f600 \\xc2\\x9b "
         "\\xe0\\x80\\x80 \\xf5\\x80 \\xe2\\x82'"},
        {"ZYLMsgStringType", id + longest + "b", cut.c_str()},
        {"ZYLMsgAnalysisMessageType", id + "\4\0\0\0<a/>"s, "x ZYLMsgAnalysisMessageType (8 bytes): '<a/>'"},
        {"ZYLMsgProcessControlType", id + "\x10\0\0\0<Kill>all</Kill>"s,
         "x ZYLMsgProcessControlType (20 bytes): '<Kill>all</Kill>'"},
        {"ZYLMsgProcessControlType", id + "\1\0"s, "x ZYLMsgProcessControlType (2 bytes): first bytes 01 00"},
        {"ZYLMsgFileTransferType", id + "\3\0\0\0"s + std::string(32, '\0') + "\7\0\0\0\2\0\0\0ab"s,
         "x ZYLMsgFileTransferType (46 bytes): chunk 7 of 2 bytes"},
        {"ZYLMsgFileTransferType",
         id + "\6\0\0\0"s + std::string(28, '\0') + "\x08\0\0\0no \\x0a\a"s + std::string(8, '\0'),
         "x ZYLMsgFileTransferType (52 bytes): confirms the file; it failed: no \\x0a\\x07"},
        {"ZYLMsgFileTransferType", id + "\6\0\0\0\xff"s,
         "x ZYLMsgFileTransferType (5 bytes): first bytes 06 00 00 00 ff"},
    };
    for (const auto& [type, bytes, line] : messages) {
        EXPECT_EQ(WithoutTimes(EnvelopeLine(type, bytes)), line);
    }
}

TEST_F(WithProcesses, ZylmsgPutsAFileAndWaitsForTheConfirmationAlsoAfterOneThatWasKilled) {
    MakeFile(m_directory / "here/data", 70'000);
    MakeFile(m_directory / "large", 10);
    std::filesystem::resize_file(m_directory / "large", 200'000'000);
    const std::string there = m_directory / "there";
    std::filesystem::create_directory(there);
    Process target([] {
        Application("target", {}, {}, 4).Listen();
        return 0;
    });
    Process killed(Zylmsg({"put", m_directory / "large", "target", there}));
    target.AwaitLine("updating chunkId 1 ");  // it logs more than the pipe holds, and is not read any further
    killed.Kill(SIGTERM);
    EXPECT_EQ(killed.Wait(), "signal 15");
    target.AwaitLine("/large is incomplete: application operator was lost after ");
    Process put(Zylmsg({"put", m_directory / "here/data", "target", there}));
    EXPECT_EQ(put.Wait(), "status 0") << put.Output();
    EXPECT_EQ(put.Output(), "target has data, 70000 bytes\n");
    EXPECT_SAME_FILE(m_directory / "here/data", there + "/data");
    Process failing(Zylmsg({"put", m_directory / "here/data", "target", there + "/missing"}));
    EXPECT_EQ(failing.Wait(), "status 5");
    EXPECT_THAT(failing.Output(),
                AllOf(HasSubstr("zylmsg: target does not have data: "), HasSubstr("No such file")));
    EXPECT_EQ(Process(Zylmsg({"send", "target", "done"})).Wait(), "status 0");
    EXPECT_EQ(target.Wait(), "status 0");
    EXPECT_THAT(target.Output(), HasSubstr("operator: done\n"));
}

/// Gives this process a disk of its own with a little room, or where it may not have one a limit of its files.
void MakeDiskOf(rlim_t size, const std::string& directory) {
    const std::string options = fmt::format("size={}", size);
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", directory.c_str(), "tmpfs", 0, options.c_str()) != 0) {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{size, size};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
}

TEST_F(WithProcesses, AFullDiskIsReportedOnceOnBothSidesAndSmallFilesStillArrive) {
    constexpr std::size_t kDisk = 256 * 1024;
    const std::string from = m_directory / "from", to = m_directory / "to";
    MakeFile(from + "/large", 3 * kDisk);
    MakeFile(from + "/small", 1000);
    std::filesystem::create_directory(to);
    Process target([&] {
        MakeDiskOf(kDisk, to);
        Application me("target", {}, {}, 1);
        me.Listen();
        const std::string copy = FileBytes(to + "/large");
        EXPECT_TRUE(!copy.empty() && FileBytes(from + "/large").starts_with(copy)) << copy.size();
        std::filesystem::remove(to + "/large");
        me.Listen();
        EXPECT_SAME_FILE(to + "/small", from + "/small");
        return 0;
    });
    const std::string failure = fmt::format("cannot write all of file {}/large: ", to);
    for (const auto& [file, status, said] : {std::tuple("large", "status 5", "target reports: " + failure),
                                             {"small", "status 0", "target has small"}}) {
        Process put(Zylmsg({"put", from + "/" + file, "target", to}));
        EXPECT_EQ(put.Wait(), status);
        EXPECT_THAT(put.Output(), HasSubstr(said));
        EXPECT_EQ(Process(Zylmsg({"send", "target", "done"})).Wait(), "status 0");
    }
    EXPECT_EQ(target.Wait(), "status 0") << target.Output();
    const std::size_t at = target.Output().find(failure);
    EXPECT_NE(at, std::string::npos);
    EXPECT_EQ(at, target.Output().rfind(failure)) << target.Output();
}

TEST_F(WithProcesses, ZylmsgPutEndsWhenTheTargetIsKilledBeforeItConfirms) {
    MakeFile(m_directory / "data", 10);
    Process target({Program("zylmsg"), "--domain", "job", "listen", "target"});
    Process put(Zylmsg({"put", m_directory / "data", "target"}));
    target.AwaitLine("the file is complete, to be confirmed, from operator");
    target.Kill(SIGKILL);
    EXPECT_EQ(put.Wait(), "status 3");
    EXPECT_THAT(put.Output(), HasSubstr("zylmsg: target does not have data: "));
}

TEST_F(WithProcesses, ZylmsgTellsByItsStatusWhatFailed) {
    setenv("ZYL_BACKBONE_CONNECT_TIMEOUT", "0.1", 1);
    MakeFile(m_directory / "data", 10);
    std::string closed = m_directory / "closed";
    MakeFile(closed, 10);
    std::filesystem::permissions(closed, std::filesystem::perms::none);
    if (access(closed.c_str(), R_OK) == 0) {
        closed = "/sys/bus/cpu/drivers_probe";  // root may read everything but what the kernel only takes
    }
    const struct {
        std::vector<std::string> arguments;
        const char* status;
        const char* text;
    } cases[] = {
        {{}, "status 2", "subcommand is required"},
        {{"lisen", "me"}, "status 2", "zylmsg: no such subcommand 'lisen'; did you mean 'listen'?\n"},
        {{"frobnicate"}, "status 2", "zylmsg: no such subcommand 'frobnicate'\n"},
        {{"send", "nobody"}, "status 2", "text is required"},
        {{"listen", "me", "--cuont=1"}, "status 2", "no such option '--cuont'; did you mean '--count'?\n"},
        {{"--count", "1", "listen", "me"}, "status 2", "'--count' stands behind its subcommand, listen"},
        {{"listen", "me", "--count", "0"}, "status 2", "'0' is not a whole number from 1 to 2147483647\n"},
        {{"kill", std::string(4097, 'x')}, "status 2", "target: a name has 4096 bytes at most"},
        {{"--help"}, "status 0", "Subcommands:"},
        {{"send", "--help"}, "status 0", "--domain"},
        {{"--version"}, "status 0", "zylmsg 1."},
        {{"send", "nobody", "text"}, "status 3", "is dropped: it did not come in time"},
        {{"kill", "nobody"}, "status 3", "is dropped: it did not come in time"},
        {{"put", m_directory / "data", "nobody"},
         "status 3",
         "zylmsg: nobody does not have data: application nobody was not there"},
        {{"put", m_directory / "missing", "nobody"}, "status 4", "No such file"},
        {{"put", "/proc/self/mem", "nobody"}, "status 4", "cannot read /proc/self/mem: Input/output error"},
        {{"put", m_directory.Path(), "nobody"}, "status 4", "no regular file"},
        {{"put", closed, "nobody"},
         "status 4",
         std::filesystem::exists(closed) ? "Permission denied" : "No such"},
    };
    for (const auto& [arguments, status, text] : cases) {
        Process zylmsg(Zylmsg(arguments));
        EXPECT_EQ(zylmsg.Wait(), status) << zylmsg.Output();
        EXPECT_THAT(zylmsg.Output(), HasSubstr(text));
    }
}

TEST_F(WithProcesses, ZylmsgListenFailsWhenItCannotPrint) {
    for (const auto& [output, reason] :
         {std::pair(">/dev/full", "No space left on device"), std::pair(">&-", "Bad file descriptor")}) {
        Process listener(
            {"/bin/sh", "-c", std::string("exec $0 --domain=job listen me ") + output, Program("zylmsg")});
        EXPECT_EQ(Process(Zylmsg({"send", "me", "text"})).Wait(), "status 0");
        EXPECT_EQ(listener.Wait(), "status 1");
        EXPECT_EQ(listener.Output(),
                  std::string("zylmsg: cannot write to standard output: ") + reason + '\n');
    }
}

TEST_F(WithProcesses, ZylmsgEndsWithOneLineWhereItCannotWork) {
    Process holder({Program("zylmsg"), "--domain=job", "listen", "taken"});
    EXPECT_EQ(Process(Zylmsg({"send", "taken", "Are you there?"})).Wait(), "status 0");
    MakeFile(m_directory / "file", 10);
    std::filesystem::create_directory(m_directory / "open");
    std::filesystem::permissions(m_directory / "open", std::filesystem::perms::all);
    const struct {
        std::string setting;
        const char* text;
    } cases[] = {
        {"ZYL_BACKBONE=local", "'taken'"},
        {"ZYL_BACKBONE_DIR=" + (m_directory / "file"), "Not a directory"},
        {"ZYL_BACKBONE_DIR=" + (m_directory / "open"), "others may use it too"},
        {"ZYL_BACKBONE_DIR=here", "it must be an absolute path"},
        {"ZYL_BACKBONE_CONNECT_TIMEOUT=soon", "it must be a number of seconds"},
    };
    for (const auto& [setting, text] : cases) {
        for (const std::vector<std::string>& arguments :
             std::vector<std::vector<std::string>>{{"listen", "taken"}, {"kill", "x", "--as", "taken"}}) {
            std::vector<std::string> command{"/usr/bin/env", setting, Program("zylmsg"), "--domain=job"};
            command.insert(command.end(), arguments.begin(), arguments.end());
            Process zylmsg(command);
            EXPECT_EQ(zylmsg.Wait(), "status 1");
            EXPECT_THAT(zylmsg.Output(), AllOf(HasSubstr(text), EndsWith("\n")));
            EXPECT_EQ(std::count(zylmsg.Output().begin(), zylmsg.Output().end(), '\n'), 1);
        }
    }
}

}  // namespace
