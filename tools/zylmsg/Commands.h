#ifndef ZYLMSG_COMMANDS_H
#define ZYLMSG_COMMANDS_H

#include <string>

/// The subcommands. Each returns the exit status of the program.

enum ExitCode : int {
    kDone = 0,
    kFailed = 1,
    kUsage = 2,
    kTargetLost = 3,
    kFileUnreadable = 4,
    kFileNotKept = 5
};

/// The domain that this program joins and its application name there.
struct Identity {
    std::string domain;
    std::string name;
};

/// While a guard exists, a fatal error of the library ends this program with status kFailed instead of an
/// abort; the library's line on standard error remains. Join holds one because a fatal error there is
/// caused by the environment (an unusable directory, a malformed setting, a name that is taken), not by a
/// bug. Checking the environment beforehand instead would duplicate the library's checks and be a race.
class JoiningGuard {
  public:
    JoiningGuard();
    ~JoiningGuard();
    JoiningGuard(const JoiningGuard&) = delete;
    JoiningGuard& operator=(const JoiningGuard&) = delete;
};

/// Flushes standard output. Returns false after reporting the reason if not everything could be written.
bool WriteOut();

/// Sends a string message. kDone if the target was there to take it.
int Send(const Identity& identity, const std::string& target, const std::string& text);

/// Ask the target to end, in good order or at once. kDone if the target was there to take the request.
int KillSoftly(const Identity& identity, const std::string& target);
int KillHard(const Identity& identity, const std::string& target);

/// Sends a file, waits for its outcome and prints it. kDone once the target has confirmed the whole file.
int Put(const Identity& identity, const std::string& file, const std::string& target,
        const std::string& directory);

/// Prints the next `count` messages for the application that `identity` names, whatever their bytes.
/// kFailed if one cannot be printed.
int Listen(const Identity& identity, int count);

#endif
