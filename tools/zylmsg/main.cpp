// zylmsg: an operator's command line for a running system. It sends a string message or a file, asks an
// application to end, and prints what an application receives.

#include <fmt/format.h>

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

/// Opens /dev/null for reading in place of a closed standard input, output or error. Otherwise the
/// backbone would get that descriptor, and printed text would go into its sockets.
void OpenClosedDescriptors() {
    std::FILE* file = nullptr;
    do {
        file = std::fopen("/dev/null", "r");
    } while (file != nullptr && fileno(file) <= fileno(stderr));
    if (file != nullptr) {
        std::fclose(file);
    }
}

/// Two commands that run at once must not have the same name.
std::string RandomName() {
    return fmt::format("zylmsg-{:08x}", std::random_device()());
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

/// The error text for an option that is unknown in its place.
std::string MistypedOption(const CLI::App& app, const std::string& option) {
    std::vector<std::string> known = OptionNames(app);
    const bool anyGiven = !app.get_subcommands().empty();
    for (const CLI::App* const subcommand : app.get_subcommands({})) {
        if (anyGiven && !subcommand->parsed()) {
            continue;
        }
        if (Has(*subcommand, option)) {
            return fmt::format("option '{}' stands behind its subcommand, {}", option,
                               subcommand->get_name());
        }
        const std::vector<std::string> more = OptionNames(*subcommand);
        known.insert(known.end(), more.begin(), more.end());
    }
    return fmt::format("no such option '{}'{}", option, Suggestion(option, known));
}

/// The error text for the first unknown option or subcommand, with a suggestion; empty if the error is
/// another.
std::string MistypedWord(const CLI::App& app) {
    const std::vector<std::string> words = app.remaining(true);
    for (const std::string& word : words) {
        if (word.starts_with('-')) {
            return MistypedOption(app, word.substr(0, word.find('=')));
        }
    }
    if (app.get_subcommands().empty() && !words.empty()) {
        return fmt::format("no such subcommand '{}'{}", words.front(),
                           Suggestion(words.front(), SubcommandNames(app)));
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
            "--count", fmt::format("{} is not a whole number from 1 to {}", QORText::Quoted(text), INT_MAX));
    }
    return count;
}

/// The error text for a name that the backbone would refuse with a fatal error; empty for a valid name.
std::string NameError(const std::string& text) {
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
    send->add_option("target", target, "the application it is for")->required()->check(NameError);
    send->add_option("text", text, "what it says")->required();

    CLI::App* const listen = app.add_subcommand("listen", "prints every message that an application gets");
    listen->add_option("name", target, "the application to be")->required();
    listen
        ->add_option_function<std::string>(
            "--count", [&](const std::string& number) { count = CountFrom(number); },
            "end after so many messages")
        ->type_name("INT");

    CLI::App* const kill = app.add_subcommand("kill", "asks an application to end");
    kill->add_option("target", target, "the application")->required()->check(NameError);
    kill->add_flag("--hard", hard, "at once, rather than in good order");

    CLI::App* const put = app.add_subcommand("put", "sends a file and waits for the confirmation");
    put->add_option("file", file, "the file here; the copy has the same name")->required();
    put->add_option("target", target, "the application that keeps it")->required()->check(NameError);
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
    if (*kill) {
        return hard ? KillHard(identity, target) : KillSoftly(identity, target);
    }
    return Put(identity, file, target, directory);
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
