// zylmsg: what an operator does to a running system by hand. Sends a string message or a file, asks an
// application to end, prints what an application receives.

#include <CLI/CLI.hpp>
#include <climits>
#include <cstdio>
#include <exception>
#include <random>
#include <string>
#include <vector>

#include "Commands.h"
#include "Suggestion.h"

namespace {

constexpr const char* kStatusText =
    "Status:\n"
    "  0  done\n"
    "  1  another failure, such as a directory or a name that cannot be used\n"
    "  2  wrong usage\n"
    "  3  the target did not come in time, or has gone\n"
    "  4  the file cannot be read here\n"
    "  5  the target does not have the file\n"
    "A target that is not there is waited for, ZYL_BACKBONE_CONNECT_TIMEOUT seconds (30).";

/// Two commands at once must not hold the same name.
std::string RandomName() {
    char name[sizeof "zylmsg-00000000"];
    std::snprintf(name, sizeof name, "zylmsg-%08x", static_cast<unsigned>(std::random_device()()));
    return name;
}

std::vector<std::string> SubcommandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* const subcommand : app.get_subcommands({})) {
        names.push_back(subcommand->get_name());
    }
    return names;
}

std::vector<std::string> OptionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* const option : app.get_options()) {
        names.push_back(option->get_name());
    }
    return names;
}

/// The first mistyped word with what was probably meant; empty when the error is another one.
std::string MistypedWord(const CLI::App& app) {
    const std::vector<CLI::App*> given = app.get_subcommands();
    const std::vector<std::string> words = app.remaining(true);
    for (const std::string& word : words) {
        if (word.starts_with('-')) {
            std::vector<std::string> options = OptionNames(app);
            for (const CLI::App* const subcommand : given) {
                const std::vector<std::string> more = OptionNames(*subcommand);
                options.insert(options.end(), more.begin(), more.end());
            }
            return "no such option '" + word + "'" + Suggestion(word, options);
        }
    }
    if (given.empty() && !words.empty()) {
        return "no such subcommand '" + words.front() + "'" + Suggestion(words.front(), SubcommandNames(app));
    }
    return {};
}

}  // namespace

int main(int argc, char** argv) try {
    Identity identity{"default", RandomName()};
    std::string target;
    std::string text;
    std::string file;
    std::string directory;
    bool hard = false;
    int count = INT_MAX;

    CLI::App app("Works on a running system of applications by hand.");
    app.footer(kStatusText);
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", "zylmsg " ZYL_VERSION);
    app.add_option("--domain", identity.domain, "the domain to join")->capture_default_str();
    app.add_option("--as", identity.name,
                   "this program's application name (default: zylmsg- and a random number)");

    CLI::App* const send = app.add_subcommand("send", "sends a string message");
    send->add_option("target", target, "the application it is for")->required();
    send->add_option("text", text, "what it says")->required();

    CLI::App* const listen = app.add_subcommand("listen", "prints every message that an application gets");
    listen->add_option("name", target, "the application to be")->required();
    listen->add_option("--count", count, "end after so many messages")->check(CLI::PositiveNumber);

    CLI::App* const kill = app.add_subcommand("kill", "asks an application to end");
    kill->add_option("target", target, "the application")->required();
    kill->add_flag("--hard", hard, "at once, rather than in good order");

    CLI::App* const put = app.add_subcommand("put", "sends a file and waits for the confirmation");
    put->add_option("file", file, "the file here; the copy has the same name")->required();
    put->add_option("target", target, "the application that keeps it")->required();
    put->add_option("directory", directory, "where the target keeps it (default: where the target runs)");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);  // help or version
        }
        const std::string mistyped = MistypedWord(app);
        std::fprintf(stderr, "zylmsg: %s\nRun with --help for more information.\n",
                     mistyped.empty() ? error.what() : mistyped.c_str());
        return kUsage;
    }
    if (*send) {
        return Send(identity, target, text);
    }
    if (*listen) {
        return Listen({identity.domain, target}, count);
    }
    return *kill ? Kill(identity, target, hard) : Put(identity, file, target, directory);
} catch (const std::exception& error) {
    std::fprintf(stderr, "zylmsg: %s\n", error.what());
    return kFailed;
}
