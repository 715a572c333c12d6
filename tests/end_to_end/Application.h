#ifndef ZYL_TESTS_END_TO_END_APPLICATION_H
#define ZYL_TESTS_END_TO_END_APPLICATION_H

#include <memory>
#include <string>

#include "ZYLMsgBBDisconnectHandler.h"
#include "ZYLMsgFileTransfer.h"

/// The application that a role of a test plays in the domain "job". It takes part in file transfers, and
/// ends those of lost applications.
class Application {
  public:
    /// The lines of file transfers up to the level `verbosity` go to standard error.
    explicit Application(const std::string& name, int verbosity = 0);

    /// Tells each text that comes as the line "sender: text", until the text "done".
    void Listen();
    void End() { m_endingCondition = 0; }

    ZYLMsgFileTransfer files;

  private:
    std::unique_ptr<ZYLMsgBBDisconnectHandler> m_watch;
    int m_endingCondition = -1;
};

#endif
