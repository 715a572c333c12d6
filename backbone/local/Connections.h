#ifndef ZYL_BACKBONE_LOCAL_CONNECTIONS_H
#define ZYL_BACKBONE_LOCAL_CONNECTIONS_H

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Doorbell.h"
#include "FileDescriptor.h"
#include "FrameReader.h"
#include "Lane.h"
#include "Poller.h"
#include "transport/Transport.h"

/// The two ends of a link. Frames run one way only, from the process that opened the link to the one that
/// listens; what comes back is one byte with the listener's bell, once the opener sends messages, and the end
/// of file.
///
/// The opener makes a lane when it first sends a message. Where that is not possible, or not wanted, its
/// messages are frames on the socket, and it asks for the bell by a frame: its page tells whether the
/// listener is held up.

namespace zyl::backbone::local {

class LocalDomain;

/// The receiving end: a connection that an application of this process has accepted.
class Incoming final : public Watched {
  public:
    /// `pid` is the peer's, as the kernel knows it; `application` the number of the receiving one.
    Incoming(LocalDomain& domain, FileDescriptor socket, int pid, int application);

    enum class Intake {
        kFrame,    ///< `frame` holds the next one
        kHeld,     ///< the next one is a message, and none is wanted
        kStarved,  ///< there may be more, but this process has no descriptors for what may come with it
        kEmpty,    ///< nothing more until Ready
        kEnded     ///< nothing more at all
    };
    /// Takes the next frame; a message only if one is wanted. Throws BadFrame, also for a first frame that is
    /// no greeting and for a later one that is.
    Intake Take(std::optional<FrameView>& frame, bool wantsMessage);

    void Ready(const Readiness& readiness) override;

    /// Sets up the lane that a frame has announced, and answers with `own`. Throws BadFrame.
    void OpenLane(const FrameView& frame, const Doorbell& own);
    /// Gives the writer `own`, which it has asked for.
    void AnswerWithBell(const Doorbell& own);
    bool OwesBell() const { return m_owesBell; }
    /// The lane and its writer's bell, once there is one.
    LaneReader* Lane() const { return m_lane.get(); }
    const std::shared_ptr<PeerDoorbell>& WritersBell() const { return m_writersBell; }

    int Pid() const { return m_pid; }
    int Application() const { return m_application; }

    /// Whether the peer has closed its end, after what can still be read.
    bool HungUp() const { return m_hangup; }
    /// Looks at the socket again, though nothing was told of it.
    void Recheck();

    /// Whether the domain has this connection in its queue of readable ones.
    bool queued = false;
    /// Whether the peer's end has been reported already: only its messages count now.
    bool orphaned = false;

  private:
    bool Receive();
    void CheckOrder(FrameKind kind);

    LocalDomain& m_domain;
    FileDescriptor m_socket;
    PollerEntry m_entry;
    int m_pid;
    int m_application;
    FrameReader m_reader;
    std::vector<FileDescriptor> m_descriptors;
    std::unique_ptr<LaneReader> m_lane;
    std::shared_ptr<PeerDoorbell> m_writersBell;
    bool m_greeted = false;
    /// Whether it is clear that no lane will come any more: it is there, or messages come without one.
    bool m_settled = false;
    /// Whether an answer with the bell could not be sent yet.
    bool m_owesBell = false;
    bool m_wasAsked = false;
    bool m_drained = false;
    bool m_hangup = false;
    bool m_ended = false;
};

/// The sending end: a connection that this process has opened to another application.
class Outgoing final : public Watched {
  public:
    Outgoing(LocalDomain& domain, FileDescriptor socket, Peer peer, bool announced);
    ~Outgoing() override;

    const Peer& To() const { return m_peer; }
    bool Announced() const { return m_announced; }
    bool Alive();
    void* Reserve(const char* type, int size);
    Progress Commit();
    std::optional<std::uint64_t> HeldUp() const {
        return m_readersBell != nullptr ? std::optional(m_readersBell->HeldUp()) : std::nullopt;
    }
    /// Sends a whole control frame, now or before the next message.
    void SendControl(const std::string& frame);
    /// Takes the reader's bell from the socket, if it is there.
    void ReceiveBell();
    /// The peer is known to be gone.
    void SetLost() { m_lost = true; }

    void Ready(const Readiness& readiness) override;

    /// Whether a lane that was full may have room again.
    bool LaneHasRoom() const { return m_lane->HasRoom(); }

  private:
    void OpenLane();
    void* ReserveInLane(const char* type, int size);
    Progress CommitToLane();
    void Lose();
    void GiveUp(const BadFrame& reason);
    void* ReserveFrame(const char* type, int size);
    bool Send(const char* bytes, std::size_t size, std::size_t& sent);
    Progress SendBacklog();
    Progress Blocked();
    void StopAwaiting();

    LocalDomain& m_domain;
    FileDescriptor m_socket;
    PollerEntry m_entry;
    Peer m_peer;
    bool m_announced;
    bool m_lost = false;
    bool m_awaitsRoom = false;
    bool m_laneTried = false;
    std::unique_ptr<LaneWriter> m_lane;
    std::shared_ptr<PeerDoorbell> m_readersBell;
    long m_lastLook = 0;
    std::string m_controls;
    std::size_t m_controlsSent = 0;
    std::unique_ptr<char[]> m_frame;
    std::size_t m_capacity = 0;
    std::size_t m_size = 0;
    std::size_t m_sent = 0;
};

/// The switchboard's handle on a connection, which the domain keeps for as long as the peer lives.
class OpenLink final : public Link {
  public:
    explicit OpenLink(std::shared_ptr<Outgoing> outgoing) : m_outgoing(std::move(outgoing)) {}
    const Peer& To() const override { return m_outgoing->To(); }
    bool Announced() const override { return m_outgoing->Announced(); }
    bool Alive() override { return m_outgoing->Alive(); }
    void* Reserve(const char* type, int size) override { return m_outgoing->Reserve(type, size); }
    Progress Commit() override { return m_outgoing->Commit(); }
    std::optional<std::uint64_t> HeldUp() const override { return m_outgoing->HeldUp(); }

  private:
    std::shared_ptr<Outgoing> m_outgoing;
};

}  // namespace zyl::backbone::local

#endif
