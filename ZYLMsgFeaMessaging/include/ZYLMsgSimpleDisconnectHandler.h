#ifndef ZYLMSGSIMPLEDISCONNECTHANDLER_H
#define ZYLMSGSIMPLEDISCONNECTHANDLER_H

#include "ZYLMsgBBDisconnectHandler.h"
#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

/// Watches one application. When that application is lost, the handler ends either this process, with exit
/// status 0, or the waiting loop that waits on EndingCondition().
///
/// The application owns the handler, keeps it alive while it is associated with the callback manager, and
/// deletes it. Setters may be called at any time on the thread of the waiting loops.
class ZYLMSGMODULES_EXPORT ZYLMsgSimpleDisconnectHandler : public ZYLMsgBBDisconnectHandler {
  public:
    /// The reaction to the loss of the watched application; any value but e_exit acts as e_endLoop.
    enum e_behavior : int {
        e_exit = 0,    ///< calls exit(0), so exit handlers and static destructors run
        e_endLoop = 1  ///< sets EndingCondition() to 0; the process continues
    };

    /// Watches the application "" and process -1 (no real process) with e_exit.
    ZYLMsgSimpleDisconnectHandler();
    ~ZYLMsgSimpleDisconnectHandler() override;

    /// Watches the application named `app`, and also the process `pid` of `host`: a report that matches
    /// either one concerns the watched application. Names are compared byte by byte, hosts without regard
    /// to the case of ASCII letters. A null `host` keeps the host set before.
    void SetWatchApplication(const char* app, int pid, const char* host);

    void SetDisconnectBehavior(e_behavior behavior);

    /// The condition for ZYLMsgBBAPI::WaitingLoop: -1 at first, 0 once the watched application was lost
    /// under e_endLoop. The handler never resets it.
    int& EndingCondition();

    /// Writes a line on standard error for each report. If the report concerns the watched application, it
    /// writes a second line and acts as set by SetDisconnectBehavior.
    void DetectDisconnection(int pid, const char* app, const char* host, const char* user) const override;

  private:
    bool IsWatched(int pid, const char* app, const char* host) const;

    ZYLString m_watchApplication;
    mutable int m_endingCondition = -1;  // mutable because DetectDisconnection is const
    e_behavior m_behavior = e_exit;
    int m_watchProcess = -1;
    ZYLString m_watchHost;  // ASCII letters in upper case
};

#endif
