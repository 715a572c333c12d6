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
#include <regex>

#include "Application.h"
#include "EnvelopeLine.h"
#include "Process.h"

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

/// A process that executes a command of a shell: $P has the programs, and in the domain of the tests' roles $L
/// listens and $Z is the command-line program.
Process Shell(const std::string& command) {
    constexpr const char* kNames =
        R"(P={}; L="$P/zylmsg --domain job listen"; Z="$P/zylmsg --domain job --as operator"; {})";
    return Process(fmt::format(kNames, ZYL_PROGRAMS, command));
}

void ExpectEnd(Process& process, const std::string& status, const std::vector<std::string>& texts) {
    EXPECT_EQ(process.Wait(), status) << process.Output();
    for (const std::string& text : texts) {
        EXPECT_THAT(process.Output(), HasSubstr(text));
    }
}

TEST_F(WithProcesses, TheHelloExamplesMeetAndStandInTheReadme) {
    Process sender = Shell("$P/hello_sender");
    Process receiver = Shell("exec $P/hello_receiver");
    receiver.AwaitLine("sender says: Hello!");
    ExpectEnd(sender, "status 0", {});
    const std::string readme = FileBytes(ZYL_SOURCES "/README.md");
    for (const char* example : {"hello_receiver.cpp", "hello_sender.cpp"}) {
        EXPECT_THAT(readme, HasSubstr(FileBytes(ZYL_SOURCES "/examples/" + std::string(example))));
    }
}

/// The analysis of the examples, with a small model.
class Analysis : public WithProcesses {
  protected:
    Analysis() { MakeFile(m_job + "/monitor/model.dat", 200'000); }

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
    Process whole = Shell("$P/launcher " + other);
    Process stopped = Shell(fmt::format("$P/launcher {} --stop-at=40 --pause-at=50", m_job));
    ExpectEnd(whole, "status 0",
              {" solver ZYLMsgStringType (28 bytes): 'The solver says this itself.'\n",
               " relay ZYLMsgStringType (39 bytes): 'The solver says this through the relay.'\n",
               " solver ProgressMessage (28 bytes): 50 %, step 5, residual ",
               "'<Finished percent=\"100.000000\"/>'\n", "solver: finished at 100 %\n",
               "monitor: the solver has gone at 100 %: Finished\n"});
    ExpectEnd(stopped, "status 0",
              {"monitor: asks solver to stop\n", " monitor ZYLMsgProcessControlType (80 bytes): SOFT_KILL\n",
               "solver: stopped cleanly at ", "%: Stopped\n"});
    EXPECT_THAT(stopped.Output(), Not(HasSubstr(": 60 %,")));
    ExpectAllFilesCopied(other, 100'000);
    ExpectAllFilesCopied(m_job, 200'000);
    EXPECT_THAT(BackboneFiles(), IsEmpty());
}

TEST_F(Analysis, EndsForTheMonitorWhenTheSolverIsKilled) {
    Process launcher = Shell(fmt::format("$P/launcher {} --pause-at=50", m_job));
    kill(PausingSolver(launcher), SIGKILL);
    ExpectEnd(launcher, "status 1",
              {"launcher: solver ended with signal 9\n", "monitor: Exit Handler -- confirm exit\n",
               "monitor: the solver has gone at 50 %: lost\n"});
}

TEST_F(Analysis, DoesNotOutliveItsLauncher) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    Process launcher = Shell(fmt::format("exec $P/launcher {} --pause-at=50", m_job));
    const pid_t solver = PausingSolver(launcher);
    launcher.Kill(SIGKILL);
    EXPECT_EQ(launcher.Wait(), "signal 9");  // from then on, the solver is this process's child
    int status = 0;
    waitpid(solver, &status, 0);
    EXPECT_EQ(status, SIGTERM);
}

/// The lines without the time that each begins with.
std::string WithoutTimes(const std::string& lines) {
    return std::regex_replace(lines, std::regex("(^|\n)\\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d "), "$1");
}

TEST_F(WithProcesses, ZylmsgSendsStringsAndKillsThatZylmsgPrints) {
    Process listener = Shell("exec $L me --count 3");
    std::string lines;
    for (const auto& [order, line] :
         {std::pair("send me 'Hi!\n'", "ZYLMsgStringType (4 bytes): 'Hi!\\x0a'"),
          std::pair("kill me", "ZYLMsgProcessControlType (80 bytes): SOFT_KILL"),
          std::pair("kill --hard me", "ZYLMsgProcessControlType (80 bytes): HARD_KILL")}) {
        Process operation = Shell(std::string("$Z ") + order);
        ExpectEnd(operation, "status 0", {});
        EXPECT_EQ(operation.Output(), "");
        listener.AwaitLine(line);  // nothing orders the messages of different processes
        lines += std::string("operator ") + line + '\n';
    }
    ExpectEnd(listener, "status 0", {});
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
        {"ZYLMsgStringType", "\2\0\0\0x"s,
         "? ZYLMsgStringType (5 bytes): no proper envelope, first bytes 02 00 00 00 78"},
        {"ZYLMsgStringType",
         id + "\\\t\x1b[2J \u00e4\u20ac\U0001f600 \xc2\x9b \xe0\x80\x80 \xf5\x80 \xe2\x82",
         "x ZYLMsgStringType (29 bytes): '\\\\\\x09\\x1b[2J \u00e4\u20ac\U0001f600 \\xc2\\x9b "
         "\\xe0\\x80\\x80 \\xf5\\x80 \\xe2\\x82'"},
        {"ZYLMsgStringType", id + longest + "b", cut.c_str()},
        {"ZYLMsgFileTransferType",
         id + "\6\0\0\0"s + std::string(28, '\0') + "\x08\0\0\0no \\x0a\a"s + std::string(8, '\0'),
         "x ZYLMsgFileTransferType (52 bytes): confirms the file; it failed: no \\x0a\\x07"},
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
        Application("target", 4).Listen();
        return 0;
    });
    {
        const Process killed = Shell(fmt::format("exec $Z put {} target {}", m_directory / "large", there));
        target.AwaitLine(
            "updating chunkId 1 ");  // it logs more than the pipe holds, and is not read any further
    }
    target.AwaitLine("/large is incomplete: application operator was lost after ");
    Process put =
        Shell(fmt::format("$Z put {} target {} && $Z send target done", m_directory / "here/data", there));
    ExpectEnd(put, "status 0", {"target has data, 70000 bytes\n"});
    EXPECT_SAME_FILE(m_directory / "here/data", there + "/data");
    ExpectEnd(target, "status 0", {"operator: done\n"});
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
        Application me("target", 1);
        me.Listen();
        const std::string copy = FileBytes(to + "/large");
        EXPECT_TRUE(!copy.empty() && FileBytes(from + "/large").starts_with(copy)) << copy.size();
        std::filesystem::remove(to + "/large");
        me.Listen();
        EXPECT_SAME_FILE(to + "/small", from + "/small");
        return 0;
    });
    const std::string failure = fmt::format("cannot write all of file {}/large: ", to);
    const std::string put =
        fmt::format("$Z put {}/$F target {}; s=$?; $Z send target done; exit $s", from, to);
    Process large = Shell("F=large; " + put);
    ExpectEnd(large, "status 5", {"target reports: " + failure});
    Process small = Shell("F=small; " + put);
    ExpectEnd(small, "status 0", {"target has small"});
    ExpectEnd(target, "status 0", {failure});
    EXPECT_EQ(target.Output().find(failure), target.Output().rfind(failure)) << target.Output();
}

TEST_F(WithProcesses, ZylmsgPutEndsWhenTheTargetIsKilledBeforeItConfirms) {
    MakeFile(m_directory / "data", 10);
    Process target = Shell("exec $L target");
    Process put = Shell(fmt::format("$Z put {} target", m_directory / "data"));
    target.AwaitLine("the file is complete, to be confirmed, from operator");
    target.Kill(SIGKILL);
    ExpectEnd(put, "status 3", {"zylmsg: target does not have data: "});
}

TEST_F(WithProcesses, ZylmsgTellsByItsStatusAndOneLineWhatFailed) {
    const std::string place = m_directory.Path();
    MakeFile(place + "/data", 10);
    Process holder = Shell("exec $L taken");
    EXPECT_EQ(Shell("$Z send taken 'Are you there?'").Wait(), "status 0");
    const std::string refuse = "$P/zylmsg --domain job kill x --as taken";
    const struct {
        std::string command;
        int status;
        const char* text;
    } cases[] = {
        {"$Z", 2, "subcommand is required"},
        {"$Z lisen me", 2, "zylmsg: no such subcommand 'lisen'; did you mean 'listen'?\n"},
        {"$Z listen me --cuont=1", 2, "no such option '--cuont'; did you mean '--count'?\n"},
        {"$Z --count 1 listen me", 2, "'--count' stands behind its subcommand, listen"},
        {"$Z listen me --count 0", 2, "'0' is not a whole number from 1 to 2147483647\n"},
        {"$Z --help", 0, "Subcommands:"},
        {"$Z --version", 0, "zylmsg 1."},
        {"ZYL_BACKBONE_CONNECT_TIMEOUT=0.1 $Z send nobody text", 3, "is dropped: it did not come in time"},
        {"ZYL_BACKBONE_CONNECT_TIMEOUT=0.1 $Z put data nobody", 3,
         "zylmsg: nobody does not have data: application nobody was not there"},
        {"$Z put missing nobody", 4, "No such file"},
        {"$Z put /proc/self/mem nobody", 4, "cannot read /proc/self/mem: Input/output error"},
        {"$L full >/dev/full & $Z send full text; wait $!", 1,
         "zylmsg: cannot write to standard output: No space left on device\n"},
        {refuse, 1, "'taken'"},
        {"ZYL_BACKBONE_DIR=$PWD/data " + refuse, 1, "Not a directory"},
        {"ZYL_BACKBONE_DIR=here " + refuse, 1, "it must be an absolute path"},
        {"ZYL_BACKBONE_CONNECT_TIMEOUT=soon " + refuse, 1, "it must be a number of seconds"},
        {"ZYL_BACKBONE_LANE=wire " + refuse, 1, "it must be 'memory' or 'socket'"},
        {"ZYL_BACKBONE=mpi " + refuse, 1, "the one transport of this library is 'local'"},
    };
    for (const auto& [command, status, text] : cases) {
        Process zylmsg = Shell(fmt::format("cd {}; {}", place, command));
        SCOPED_TRACE(command);
        ExpectEnd(zylmsg, fmt::format("status {}", status), {text});
        const auto lines = std::count(zylmsg.Output().begin(), zylmsg.Output().end(), '\n');
        EXPECT_TRUE(status != 1 || lines == 1) << zylmsg.Output();
    }
}

}  // namespace
