#ifndef ZYL_BACKBONE_TARGET_H
#define ZYL_BACKBONE_TARGET_H

#include <memory>
#include <string>

#include "transport/Transport.h"

namespace zyl::backbone {

/// An application that this process has sent to, or whose end it has heard of.
///
///   it is     when                                         goes to
///   unknown   not looked for yet, or not found yet         open: a link leads to it; lost: it did not come in time
///   open      there is a link                              lost: the link's peer is gone
///   lost      its last life is over, or it did not come:   open: a link leads to its next life
///             sends to it fail at once
///
/// Each loss is reported once: by the domain, or, when that knows of none, by whoever drops a message.
class Target {
  public:
    /// `domain` is for people.
    Target(const std::string& name, const std::string& domain);

    const std::string& Name() const { return m_name; }
    /// "for application 'N' in domain 'D'".
    const std::string& ForWhom() const { return m_forWhom; }
    /// Null: there is none.
    Link* OpenLink() const { return m_link.get(); }
    bool IsLost() const { return m_lost; }

    /// A link leads to it. Says how many messages were dropped before.
    void Open(std::unique_ptr<Link> link);
    /// The peer of its link is gone; the domain is going to report that, if it is announced.
    void LoseLink();
    /// Lets go of a link whose peer is gone, if it has one.
    void ForgetDeadLink();
    /// The end of a life of it is reported, if that was announced. A link that is still there tells by itself whether
    /// its peer is gone.
    void NoteLoss(bool announced);
    /// A message of that type was dropped. Says so in a line, but for many at most once a second. True: nobody reports
    /// that loss, so the caller has to.
    bool Drop(const char* type, const char* reason, Clock::time_point now);
    /// The last word on the messages that were dropped.
    void SayHowManyWereDropped();

  private:
    std::string m_name;
    std::string m_forWhom;
    std::unique_ptr<Link> m_link;
    bool m_lost = false;
    /// Its absence has been reported, or the transport is going to.
    bool m_reported = false;
    /// Messages dropped since it was last there, how many of them a line has told of, and when it did.
    long m_dropped = 0;
    long m_droppedAndSaid = 0;
    Clock::time_point m_said{};
};

}  // namespace zyl::backbone

#endif
