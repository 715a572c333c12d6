// zylmsg: what an operator does to a running system by hand. Sends a string message or a file, asks an
// application to end, prints what an application receives.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <exception>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "Commands.h"
#include "QORText.h"
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

/// A descriptor of standard input, output or error that is closed would become one of the backbone's. It gets
/// one instead that cannot be written.
void OpenClosedDescriptors() {
    std::FILE* file = nullptr;
    do {
        file = std::fopen("/dev/null", "r");
    } while (file != nullptr && fileno(file) <= fileno(stderr));
    if (file != nullptr) {
        std::fclose(file);
    }
}

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

bool Has(const CLI::App& app, const std::string& option) {
    const std::vector<std::string> names = OptionNames(app);
    return std::find(names.begin(), names.end(), option) != names.end();
}

/// What is wrong with an option that is not known where it stands.
std::string MistypedOption(const CLI::App& app, const std::string& option) {
    std::vector<std::string> known = OptionNames(app);
    const bool anyGiven = !app.get_subcommands().empty();
    for (const CLI::App* const subcommand : app.get_subcommands({})) {
        if (anyGiven && !subcommand->parsed()) {
            continue;
        }
        if (Has(*subcommand, option)) {
            return "option '" + option + "' stands behind its subcommand, " + subcommand->get_name();
        }
        const std::vector<std::string> more = OptionNames(*subcommand);
        known.insert(known.end(), more.begin(), more.end());
    }
    return "no such option '" + option + "'" + Suggestion(option, known);
}

/// The first mistyped word with what was probably meant; empty when the error is another one.
std::string MistypedWord(const CLI::App& app) {
    const std::vector<std::string> words = app.remaining(true);
    for (const std::string& word : words) {
        if (word.starts_with('-')) {
            return MistypedOption(app, word.substr(0, word.find('=')));
        }
    }
    if (app.get_subcommands().empty() && !words.empty()) {
        return "no such subcommand '" + words.front() + "'" + Suggestion(words.front(), SubcommandNames(app));
    }
    return {};
}

/// The value of --count.
int CountFrom(const std::string& text) {
    int count = 0;
    const char* const end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, count);
    if (error != std::errc{} || at != end || count < 1) {
        throw CLI::ValidationError(
            "--count", QORText::Quoted(text) + " is not a whole number from 1 to " + std::to_string(INT_MAX));
    }
    return count;
}

/// The library ends over a longer name.
std::string WhyNoName(const std::string& text) {
    constexpr std::size_t kLongestName = 4096;
    return text.size() <= kLongestName ? "" : "a name has 4096 bytes at most";
}

int Run(int argc, char** argv) {
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
    send->add_option("target", target, "the application it is for")->required()->check(WhyNoName);
    send->add_option("text", text, "what it says")->required();

    CLI::App* const listen = app.add_subcommand("listen", "prints every message that an application gets");
    listen->add_option("name", target, "the application to be")->required();
    listen
        ->add_option_function<std::string>(
            "--count", [&](const std::string& number) { count = CountFrom(number); },
            "end after so many messages")
        ->type_name("INT");

    CLI::App* const kill = app.add_subcommand("kill", "asks an application to end");
    kill->add_option("target", target, "the application")->required()->check(WhyNoName);
    kill->add_flag("--hard", hard, "at once, rather than in good order");

    CLI::App* const put = app.add_subcommand("put", "sends a file and waits for the confirmation");
    put->add_option("file", file, "the file here; the copy has the same name")->required();
    put->add_option("target", target, "the application that keeps it")->required()->check(WhyNoName);
    put->add_option("directory", directory, "where the target keeps it (default: where the target runs)");

    for (CLI::App* const subcommand : app.get_subcommands({})) {
        subcommand->footer("For --domain and --as, which may stand here too, and the status: zylmsg --help");
    }

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
}

}  // namespace

int main(int argc, char** argv) try {
    OpenClosedDescriptors();
    const int status = Run(argc, argv);
    return status != kDone || WriteOut() ? status : kFailed;
} catch (const std::exception& error) {
    std::fprintf(stderr, "zylmsg: %s\n", error.what());
    return kFailed;
}
