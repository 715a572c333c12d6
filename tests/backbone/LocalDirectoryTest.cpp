#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "ForeignPeer.h"
#include "Frames.h"
#include "World.h"
#include "local/LocalTransport.h"

/// What the local transport keeps on disk: who may use it, and what becomes of it.

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::SizeIs;
using zyl::backbone::MakeLocalTransport;
using zyl::backbone::Settings;
using zyl::backbone::local::GreetingFrame;

/// A user that owns nothing.
constexpr unsigned kNobody = 65534;

class LocalDirectory : public ::testing::Test {
  protected:
    std::vector<std::string> DomainFiles() const {
        std::vector<std::string> names;
        for (const fs::directory_entry& entry : fs::directory_iterator(m_settings.directory + "/d.job")) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    std::unique_ptr<World> m_world = MakeLocalWorld();
    Settings& m_settings = m_world->settings;
};

using LocalDirectoryDeathTest = LocalDirectory;

struct Unfit {
    const char* complaint;
    std::function<void(const fs::path&)> make;
    bool needsRoot = false;
};

TEST_F(LocalDirectoryDeathTest, DirectoryThatIsNotThisUsersAloneIsRefused) {
    const Unfit kUnfit[] = {
        {"others may use it too (mode 0777)",
         [](const fs::path& path) {
             fs::create_directory(path);
             fs::permissions(path, fs::perms::all);
         }},
        {"others may use it too (mode 0710)",
         [](const fs::path& path) {
             fs::create_directory(path);
             fs::permissions(path, fs::perms::owner_all | fs::perms::group_exec);
         }},
        {"it cannot be opened as a directory",
         [](const fs::path& path) {
             const fs::path real = path.string() + ".real";
             fs::create_directory(real);
             fs::permissions(real, fs::perms::owner_all);
             fs::create_symlink(real, path);
         }},
        {"it cannot be opened as a directory",
         [](const fs::path& path) { fs::create_symlink(path.string() + ".nowhere", path); }},
        {"it cannot be opened as a directory", [](const fs::path& path) { std::ofstream(path) << "a file"; }},
        {"it belongs to the user with number 65534",
         [](const fs::path& path) {
             fs::create_directory(path);
             fs::permissions(path, fs::perms::owner_all);
             ASSERT_EQ(chown(path.c_str(), kNobody, kNobody), 0);
         },
         true},
    };
    int number = 0;
    for (const Unfit& unfit : kUnfit) {
        if (unfit.needsRoot && geteuid() != 0) {
            continue;
        }
        for (const bool itIsTheDomain : {false, true}) {
            Settings settings = m_settings;
            settings.directory += "/base" + std::to_string(++number);
            const fs::path path = settings.directory + (itIsTheDomain ? "/d.job" : "");
            if (itIsTheDomain) {
                fs::create_directory(settings.directory);
                fs::permissions(settings.directory, fs::perms::owner_all);
            }
            unfit.make(path);
            EXPECT_DEATH(Participant(MakeLocalTransport(settings), settings),
                         AllOf(HasSubstr("cannot use the domain directory '" + path.string() + "': "),
                               HasSubstr(unfit.complaint),
                               HasSubstr("set ZYL_BACKBONE_DIR to a directory of your own with mode 0700")));
        }
    }
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a directory to another user; everything else was checked";
    }
}

TEST_F(LocalDirectoryDeathTest, PathThatLeadsElsewhereOrNowhereIsRefused) {
    const std::string base = m_settings.directory;
    fs::create_directory_symlink(base, base + "/link");
    for (const char* path : {"/link", "/link/", "/link//", "/missing/base"}) {
        m_settings.directory = base + path;
        EXPECT_DEATH(Participant(MakeLocalTransport(m_settings), m_settings),
                     AnyOf(HasSubstr("link': it cannot be opened as a directory"),
                           HasSubstr("missing/base': it cannot be made (No such file or directory)")));
    }
}

TEST_F(LocalDirectory, StandsInTheRuntimeDirectoryUnlessSetOtherwise) {
    ASSERT_EQ(setenv("XDG_RUNTIME_DIR", m_settings.directory.c_str(), 1), 0);
    Settings settings;
    const Participant member(MakeLocalTransport(settings), settings);
    EXPECT_TRUE(fs::is_directory(m_settings.directory + "/zyl-backbone/d.job"));
}

TEST_F(LocalDirectory, NothingIsMadeWithWiderRightsThanTheOwners) {
    m_settings.directory += "/new";
    umask(0);
    Signal made;
    Signal seen;
    m_world->Play({[&](Participant& me) {
                       me.Watch("watcher");
                       me.Receive("receiver");
                       me.Declare("helper", false);
                       made.Give();
                       seen.Await();
                   },
                   [&](Participant& me) {
                       made.Await();
                       me.Send("receiver", "t", "makes a link");
                       std::size_t count = 0;
                       for (const auto& entry : fs::recursive_directory_iterator(m_settings.directory)) {
                           const fs::perms rights = entry.symlink_status().permissions();
                           EXPECT_EQ(rights & ~fs::perms::owner_all, fs::perms::none) << entry.path();
                           ++count;
                       }
                       EXPECT_GE(count, 6U) << "domain, locks, sockets and the watcher's mark";
                       struct stat base {};
                       ASSERT_EQ(stat(m_settings.directory.c_str(), &base), 0);
                       EXPECT_EQ(base.st_mode & 07777, 0700U);
                       seen.Give();
                   }});
}

/// However far the owner has opened the way, the next guard holds: base directory, domain directory, socket,
/// and at last the kernel's word on who it is.
TEST_F(LocalDirectory, ProcessOfAnotherUserCannotListConnectOrJoin) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can play another user";
    }
    const std::string domain = m_settings.directory + "/d.job";
    const std::string socket = domain + "/a.target";
    Signal ready;
    Signal tried;
    m_world->Play(
        {[&](Participant& me) {
             me.Receive("target");
             for (const std::string& opened : {std::string(), m_settings.directory, domain, socket}) {
                 if (!opened.empty()) {
                     fs::permissions(opened, fs::perms::all);
                 }
                 ready.Give();
                 tried.Await();
             }
             me.Look();
             EXPECT_THAT(me.received, IsEmpty());
         },
         [&](Participant& /*me*/) {
             ready.Await();
             ASSERT_EQ(setgid(kNobody), 0);
             ASSERT_EQ(setuid(kNobody), 0);
             for (const bool domainIsOpen : {false, false, true}) {
                 EXPECT_EQ(ForeignPeer().Connect(socket), EACCES);
                 EXPECT_EQ(access(domain.c_str(), R_OK), domainIsOpen ? 0 : -1);
                 EXPECT_DEATH(Participant(MakeLocalTransport(m_settings), m_settings),
                              HasSubstr("cannot use the domain directory"));
                 tried.Give();
                 ready.Await();
             }
             const ForeignPeer stranger;
             EXPECT_EQ(stranger.Connect(socket), 0);
             stranger.Send(GreetingFrame({}) + MessageFrame("t", "from a stranger"));
             tried.Give();
             EXPECT_TRUE(stranger.AwaitEnd());
         }});
}

TEST_F(LocalDirectory, LeftoversOfTheDeadHoldNobodyUp) {
    m_settings.connectTimeout = milliseconds(100);
    m_world->Play({[&](Participant& me) {
        me.Watch("phoenix");
        me.Declare("helper", false);
        me.Declare("tool with " + std::string(100, '7'), false);
        me.Crash();
    }});
    ASSERT_THAT(DomainFiles(), SizeIs(7)) << "they are there: three locks, three sockets, a mark";
    for (const std::string& file : DomainFiles()) {
        if (file.starts_with("l.tool")) {
            fs::resize_file(m_settings.directory + "/d.job/" + file,
                            0);  // as killed before it wrote its name
        }
    }
    Signal there;
    m_world->Play(
        {[&](Participant& me) {
             me.Watch("watcher");
             ::testing::internal::CaptureStderr();
             me.Send("phoenix", "t", "");
             me.Send("helper", "t", "");
             const std::string lines = ::testing::internal::GetCapturedStderr();
             EXPECT_THAT(lines, AllOf(HasSubstr("'phoenix' in domain 'job' is dropped: it did not come"),
                                      HasSubstr("'helper' in domain 'job' is dropped: it did not come")));
             me.Look();
             EXPECT_THAT(me.lost, ElementsAre("phoenix", "helper")) << "for the messages, once";
             there.Give();
             me.WaitUntil([&] { return me.lost.size() == 3; });
             EXPECT_THAT(me.lost, ElementsAre("phoenix", "helper", "phoenix")) << "for its second life";
         },
         [&](Participant& me) {
             there.Await();
             me.Receive("phoenix");
             me.Declare("helper", false);
         }});
    EXPECT_FALSE(fs::exists(m_settings.directory + "/d.job"));
}

TEST_F(LocalDirectory, NameIsSafeWithItsNewHolderWhileOthersRemoveWhatTheLastOneLeft) {
    const auto comeAndGo = [&](const std::string& name) {
        return [&, name](Participant& /*me*/) {
            for (int round = 0; round < 50; ++round) {
                const pid_t last = fork();
                if (last == 0) {
                    Participant(MakeLocalTransport(m_settings), m_settings).Declare(name);
                    raise(SIGKILL);
                }
                waitpid(last, nullptr, 0);
                Participant next(MakeLocalTransport(m_settings), m_settings);
                next.Watch(name);
                const Participant another(MakeLocalTransport(m_settings), m_settings);
                EXPECT_THAT(DomainFiles(), IsSupersetOf({"l." + name, "a." + name, "w." + name}));
            }
        };
    };
    m_world->Play({comeAndGo("one"), comeAndGo("two"), comeAndGo("three"), comeAndGo("four")});
    EXPECT_FALSE(fs::exists(m_settings.directory + "/d.job"));
}

TEST_F(LocalDirectory, StrayFilesAreNobody) {
    m_settings.connectTimeout = milliseconds(50);
    m_world->Play({[&](Participant& /*me*/) {
        const std::string domain = m_settings.directory + "/d.job/";
        for (const char* name :
             {"a.", "a.%", "a.%zz", "w.%4", "w.x~y", "l.%4", "l.solver", "h.solver", "README", "a"}) {
            std::ofstream(domain + name) << "stray";
        }
        fs::create_directory(domain + "a.solver");
        Participant me(MakeLocalTransport(m_settings), m_settings);
        me.Watch("watcher");
        me.Declare("newcomer");
        me.Send("solver", "t", "");
        me.Look();
        EXPECT_THAT(DomainFiles(), IsSupersetOf({"a.", "w.x~y", "l.%4", "a.solver", "README"}));
    }});
}

TEST(SettingsDeathTest, MalformedValueIsRefusedByTheVariablesName) {
    const struct {
        const char* variable;
        const char* value;
        const char* complaint;
    } kCases[] = {
        {"ZYL_BACKBONE", "carrier pigeon", "ZYL_BACKBONE is 'carrier pigeon'; "},
        {"ZYL_BACKBONE", "LOCAL", "ZYL_BACKBONE is 'LOCAL'; "},
        {"ZYL_BACKBONE_LANE", "fast", "ZYL_BACKBONE_LANE is 'fast'; it must be 'memory' or 'socket'"},
        {"ZYL_BACKBONE_DIR", "here", "ZYL_BACKBONE_DIR is 'here'; it must be an absolute path"},
        {"ZYL_BACKBONE_CONNECT_TIMEOUT", "soon",
         "ZYL_BACKBONE_CONNECT_TIMEOUT is 'soon'; it must be a number"},
        {"ZYL_BACKBONE_CONNECT_TIMEOUT", "5s", "ZYL_BACKBONE_CONNECT_TIMEOUT is '5s'; "},
        {"ZYL_BACKBONE_CONNECT_TIMEOUT", " 5", "ZYL_BACKBONE_CONNECT_TIMEOUT is ' 5'; "},
        {"ZYL_BACKBONE_CONNECT_TIMEOUT", "-1", "ZYL_BACKBONE_CONNECT_TIMEOUT is '-1'; "},
        {"ZYL_BACKBONE_CONNECT_TIMEOUT", "nan", "ZYL_BACKBONE_CONNECT_TIMEOUT is 'nan'; "},
        {"ZYL_BACKBONE_CONNECT_TIMEOUT", "1e99", "ZYL_BACKBONE_CONNECT_TIMEOUT is '1e99'; "},
        {"ZYL_BACKBONE_CONNECT_TIMEOUT", "1\n2", "ZYL_BACKBONE_CONNECT_TIMEOUT is '1\\x0a2'; "},
    };
    for (const auto& one : kCases) {
        EXPECT_DEATH(
            {
                setenv(one.variable, one.value, 1);
                Settings::FromEnvironment();
            },
            HasSubstr(one.complaint));
    }
    setenv("ZYL_BACKBONE_CONNECT_TIMEOUT", "2.5", 1);
    setenv("ZYL_BACKBONE", "local", 1);
    EXPECT_EQ(Settings::FromEnvironment().connectTimeout, milliseconds(2500));
}

}  // namespace
