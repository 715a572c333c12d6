#ifndef ZYLMSG_COMMANDS_H
#define ZYLMSG_COMMANDS_H

#include <string>

/// What each subcommand does. The results are the program's exit status.

enum ExitCode : int {
    kDone = 0,
    kFailed = 1,
    kUsage = 2,
    kTargetLost = 3,
    kFileUnreadable = 4,
    kFileNotKept = 5
};

/// Who this program is: the domain it joins and its application name there.
struct Identity {
    std::string domain;
    std::string name;
};

/// While one lives, a fatal end of the library is an ordinary failure of this program: the line that it
/// writes stands, and the status is kFailed instead of an abort. It lives while the domain is joined, when
/// what ends the library is the environment that it was given (a directory that cannot be used, a malformed
/// setting, a name that is taken) and no fault in it. The library itself looks at all of that; a look
/// beforehand would say it twice, and could be outrun.
class JoiningGuard {
  public:
    JoiningGuard();
    ~JoiningGuard();
    JoiningGuard(const JoiningGuard&) = delete;
    JoiningGuard& operator=(const JoiningGuard&) = delete;
};

/// Writes out what has been printed. False when not all could be written, and the reason has been told.
bool WriteOut();

/// Sends a string message; kDone once it is in the hands of a target that is still there.
int Send(const Identity& identity, const std::string& target, const std::string& text);

/// Asks the target to end; kDone once the request is in its hands, or the target has gone after that.
int Kill(const Identity& identity, const std::string& target, bool hard);

/// Sends a file and waits for its outcome, which it prints; kDone once the target has confirmed that it has
/// the whole file.
int Put(const Identity& identity, const std::string& file, const std::string& target,
        const std::string& directory);

/// Prints the next `count` messages for the application that `identity` names, whatever is in them; kFailed
/// when one cannot be printed.
int Listen(const Identity& identity, int count);

#endif
