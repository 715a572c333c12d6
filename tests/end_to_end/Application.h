#ifndef ZYL_TESTS_END_TO_END_APPLICATION_H
#define ZYL_TESTS_END_TO_END_APPLICATION_H

#include <functional>
#include <memory>
#include <string>

#include "ZYLMsgBBDisconnectHandler.h"
#include "ZYLMsgFileTransfer.h"

/// The application that a role of a test plays in the domain "job". It takes part in file transfers, and
/// ends those of lost applications.
class Application {
  public:
    using OnText = std::function<void(const std::string& sender, const std::string& text)>;
    using OnLoss = std::function<void(int pid, const std::string& application)>;

    /// Without `onText` it tells each text as the line "sender: text", and ends at the text "done". The
    /// lines of file transfers up to the level `verbosity` go to standard error.
    explicit Application(const std::string& name, OnText onText = {}, OnLoss onLoss = {}, int verbosity = 0);

    static void Say(const std::string& target, const std::string& text);
    /// Handles what comes until End was called once since the last Listen.
    void Listen();
    void End();

    ZYLMsgFileTransfer files;

  private:
    std::unique_ptr<ZYLMsgBBDisconnectHandler> m_watch;
    bool m_hasEnded = false;
    int m_endingCondition = -1;
};

#endif
