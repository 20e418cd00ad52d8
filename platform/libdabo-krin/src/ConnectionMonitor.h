#pragma once

#include <log4cplus/logger.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <zmq.hpp>

#include "PeerLimit.h"
#include "RuntimeCounters.h"
#include "dabo/krin/detail/LogLimiter.h"

namespace orlo::dabo::krin::detail {

/// Watches the connections of one XPUB or SUB of the runtime while a message
/// size limit is set, so that a connection that ZeroMQ drops for a message
/// above the limit does not go unnoticed.
///
/// ZeroMQ (4.3) refuses such a message as soon as its size is announced and
/// closes that connection as broken. Its monitor reports only
/// ZMQ_EVENT_DISCONNECTED, the very event of a peer that goes away, with the
/// same value (the connection's file descriptor): the two cannot be told
/// apart. So every connection that is dropped after a completed handshake is
/// logged at ERROR, naming both causes. Connections whose handshake failed
/// (a wrong or refused key) are not: their end is reported where they fail.
///
/// On an XPUB the limit is the one for subscriptions, and the line, a WARN
/// at most once per peer and interval, names the peer's address (taken when
/// the connection was accepted).
///
/// ZeroMQ does not reconnect a connecting socket after such a drop, so a
/// subscriber would never hear from that publisher again. A SUB's monitor
/// therefore connects it afresh; a peer that went away is then reconnected to
/// as ZeroMQ would have done, once it is back.
///
/// An XPUB's monitor also holds the endpoint to its PeerLimit: it cuts a
/// connection beyond the bound as soon as it is reported accepted, and says
/// so instead of reporting its end, and it reports the accepts that fail.
///
/// The monitor is a PAIR socket served on the runtime's thread, like the
/// watched socket itself.
class ConnectionMonitor {
public:
    enum class Side {
        /// An XPUB bound at `endpoint`: its peers connect to it.
        Publishing,
        /// A SUB connected to `endpoint`.
        Subscribing,
    };

    /// `maxMessageSize`: the limit of the watched socket, for the log lines.
    ConnectionMonitor(zmq::context_t& context, zmq::socket_t& watched, Side side, std::string endpoint,
                      long maxMessageSize);
    /// Bounds the connections of a publishing endpoint from now on.
    void limitPeers(std::unique_ptr<PeerLimit> limit) { peerLimit = std::move(limit); }

    /// Stops watching; the watched socket must still be open.
    ~ConnectionMonitor();
    ConnectionMonitor(const ConnectionMonitor&) = delete;
    ConnectionMonitor& operator=(const ConnectionMonitor&) = delete;

    /// Counts the open connections and the refused handshakes in `counters`
    /// from now on (a SUB's only while its handshake is complete).
    void countInto(ConnectionCounters& counters) { connectionCounters = &counters; }

    /// For the runtime's poll items.
    zmq::socket_t& socket() { return monitor; }

    /// Handles every event waiting now, up to a bound per call.
    void serve();

    /// When a dropped subscribing connection is to be made afresh, unless
    /// ZeroMQ says first that it reconnects by itself; nothing otherwise.
    std::optional<std::chrono::steady_clock::time_point> nextDue() const { return reconnectDue; }
    /// Makes the dropped connection afresh once it is due.
    void serveDue(std::chrono::steady_clock::time_point now);

private:
    void disconnected(const std::string& peerAddress);
    void handshakeFailed(std::uint16_t event, std::uint32_t value);
    void dropped(const std::string& peerAddress);
    /// Keeps the count of open connections up to date after an event.
    void countConnections(std::uint16_t event);
    void stopWatching();

    zmq::socket_t& watched;
    Side side;
    std::string endpoint;
    long maxMessageSize;
    log4cplus::Logger logger;
    zmq::socket_t monitor;
    /// Handshakes that failed and whose connection's end is still to come,
    /// with what the publishing side is still to say about each.
    std::deque<std::string> failedHandshakes;
    /// A SUB's current connection got through its handshake.
    bool handshakeCompleted = false;
    /// The peer address of each accepted connection, by its descriptor.
    std::map<int, std::string> peers;
    LogLimiter logLimiter;
    std::unique_ptr<PeerLimit> peerLimit;
    /// Set when a subscribing connection dropped; cleared when ZeroMQ
    /// announces its own reconnection.
    std::optional<std::chrono::steady_clock::time_point> reconnectDue;
    ConnectionCounters* connectionCounters = nullptr;
    /// A SUB's connection is counted as open.
    bool countedOpen = false;
};

}  // namespace orlo::dabo::krin::detail
