#ifndef ZYLMSGSIMPLEDISCONNECTHANDLER_H
#define ZYLMSGSIMPLEDISCONNECTHANDLER_H

#include "ZYLMsgBBDisconnectHandler.h"
#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

/// Watches one application. When that application goes away, the handler ends this process with exit status
/// 0, or the waiting loop that waits on EndingCondition().
///
/// The application that makes the handler owns it: it keeps it alive while it is associated with the callback
/// manager, and deletes it afterwards. Setters may be called at any time, on the thread on which the reports
/// come.
class ZYLMSGMODULES_EXPORT ZYLMsgSimpleDisconnectHandler : public ZYLMsgBBDisconnectHandler {
  public:
    /// What happens when the watched application goes away; any value but e_exit acts as e_endLoop.
    enum e_behavior : int {
        e_exit = 0,    ///< the process ends through exit(0), so its exit handlers and static destructors run
        e_endLoop = 1  ///< EndingCondition() becomes 0 and the process goes on
    };

    /// Watches the application "" and process -1, which no real process has, under e_exit.
    ZYLMsgSimpleDisconnectHandler();
    ~ZYLMsgSimpleDisconnectHandler() override;

    /// Watches the application named `app`, and also the process `pid` of `host`: a report that matches
    /// either one is the watched application's. The name counts byte by byte; the host without regard to the
    /// case of ASCII letters. A null `host` leaves the watched host as it is.
    void SetWatchApplication(const char* app, int pid, const char* host);

    void SetDisconnectBehavior(e_behavior behavior);

    /// The condition to hand to ZYLMsgBBAPI::WaitingLoop: -1 at first, 0 once the watched application went
    /// away under e_endLoop. The handler never puts it back.
    int& EndingCondition();

    /// Writes a line on standard error for each report, and a second one when the report concerns the watched
    /// application; then acts on the latter.
    void DetectDisconnection(int pid, const char* app, const char* host, const char* user) const override;

  private:
    bool IsWatched(int pid, const char* app, const char* host) const;

    ZYLString m_watchApplication;
    mutable int m_endingCondition = -1;  // the report comes through a const function
    e_behavior m_behavior = e_exit;
    int m_watchProcess = -1;
    ZYLString m_watchHost;  // ASCII letters in upper case
};

#endif
