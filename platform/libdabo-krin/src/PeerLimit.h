#pragma once

#include <log4cplus/logger.h>

#include <chrono>
#include <set>
#include <string>

#include "dabo/krin/detail/LogLimiter.h"

namespace orlo::dabo::krin::detail {

/// Bounds the connections that one publishing endpoint (an XPUB) holds.
///
/// ZeroMQ accepts every connection that reaches a bound socket and has no
/// limit of its own; when the process runs out of file descriptors, its I/O
/// thread retries the failing accept in a tight loop for as long as a
/// connection waits in the listening queue (ZeroMQ 4.3), a core at full load.
/// So the runtime cuts a connection as soon as its monitor reports it
/// accepted, when
/// - the endpoint holds `maxPeers` connections already
///   (krin.runtime.maxPeersPerEndpoint), or
/// - the descriptor it got shows that the process has no more than a reserve
///   of descriptors left (descriptors are handed out lowest first, so the
///   number of the newest one tells how many are taken): the reserve is kept
///   for the connections the runtime itself makes and for the rest of the
///   process, and cutting frees each descriptor again, so the accepts do not
///   fail.
/// When the descriptors are taken elsewhere in the process all the same,
/// ZeroMQ reports each failing accept: the limit then gives up a descriptor it
/// holds in reserve from the start, so that ZeroMQ's next accept succeeds, and
/// cuts that connection and any other accepted until it has its reserve back.
/// The listening queue empties and ZeroMQ stops retrying, however long the
/// descriptors stay exhausted.
/// The peers already connected are never touched. Each condition, and each
/// accept that fails all the same (the descriptors taken elsewhere in the
/// process), is logged at WARN in full once, then at most once per interval
/// with the count held back.
///
/// Served on the runtime's thread, by the endpoint's ConnectionMonitor.
class PeerLimit {
public:
    /// `maxPeers`: -1 for no bound but the descriptors' reserve.
    PeerLimit(std::string endpoint, long maxPeers, log4cplus::Logger logger);
    ~PeerLimit();
    PeerLimit(const PeerLimit&) = delete;
    PeerLimit& operator=(const PeerLimit&) = delete;

    /// A connection accepted on `descriptor` from `peerAddress`; false when
    /// it was cut (shut down, so ZeroMQ closes it and reports its end).
    bool accepted(int descriptor, const std::string& peerAddress);
    /// The connection on `descriptor` ended; true if it was one cut here,
    /// whose end is no news.
    bool ended(int descriptor);
    /// ZeroMQ failed to accept a connection with `error` (an errno value).
    void acceptFailed(int error);

    /// Connections held now.
    std::size_t peers() const { return held.size(); }
    /// Descriptors at and above this number are the reserve; -1 when the
    /// process has no limit.
    long reserveStartsAt() const { return firstReserved; }

    /// Descriptors kept in reserve for a process limited to `limit`.
    static long reserveFor(long limit);

private:
    void cut(int descriptor, const std::string& key, const std::string& reason);
    void warn(const std::string& key, const std::string& text);
    /// Takes the reserve descriptor again if there is one free.
    void retakeReserve();

    std::string endpoint;
    /// The endpoint's TCP port; -1 for other transports.
    int port;
    long maxPeers;
    long firstReserved;
    log4cplus::Logger logger;
    std::set<int> held;
    std::set<int> cutOff;
    /// Held to be given up when an accept fails for want of descriptors; -1
    /// while given up.
    int reserveDescriptor;
    LogLimiter logLimiter;
};

}  // namespace orlo::dabo::krin::detail
