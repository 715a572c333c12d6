#ifndef ZYL_TESTS_END_TO_END_APPLICATION_H
#define ZYL_TESTS_END_TO_END_APPLICATION_H

#include <string>

#include "ZYLMsgFileTransfer.h"

class ZYLMsgBBDisconnectHandler;
class ZYLMsgBBMessageHandler;

/// Writes a line at once.
void Tell(const std::string& line);

/// The communicator of the domain in which all roles of a test meet.
int Domain();

/// What a role of a test needs to be an application: it takes part in file transfers, and writes each text
/// that comes as the line "sender: text".
class Application {
  public:
    /// With `texts`, which is adopted, the string messages go there instead. Neither handler is needed. The
    /// lines of file transfers up to the level `verbosity` go to standard error.
    explicit Application(const std::string& name, const ZYLMsgBBDisconnectHandler* watch = nullptr,
                         ZYLMsgBBMessageHandler* texts = nullptr, int verbosity = 0);

    static void Say(const std::string& target, const std::string& text);
    /// Handles what comes until the text "done" has come `times` times, counted from the start.
    void ListenUntilDone(int times = 1);

    ZYLMsgFileTransfer files;
    /// Never met by itself.
    int endingCondition = -1;

  private:
    class TextHandler;
    int m_done = 0;
    int m_doneAwaited = 0;
};

#endif
