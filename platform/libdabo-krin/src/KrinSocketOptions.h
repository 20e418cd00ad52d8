#pragma once

#include <set>
#include <string>
#include <zmq.hpp>

#include "dabo/Dabo.h"

namespace orlo::dabo::krin::detail {

/// Options of the sockets that the runtime's thread opens towards other
/// processes, read once from the runtime's properties:
///
/// - "krin.runtime.maxMessageSize": the largest message, in bytes, that an
///   XPUB or a SUB socket of the runtime accepts from a peer (ZeroMQ's
///   ZMQ_MAXMSGSIZE). A peer that sends a larger one is disconnected before
///   the message is stored, so a hostile peer cannot exhaust memory. Absent:
///   64 MiB; -1: no limit. The XPUBs receive subscriptions only, and take
///   none above longestSubscriptionMessage whatever the property says.
/// - "krin.runtime.maxPeersPerEndpoint": the most connections that one
///   publishing endpoint holds (PeerLimit.h). Absent: 1000; -1: no bound
///   but the reserve of file descriptors that PeerLimit keeps.
/// - CURVE, off unless keys are given (Z85 text, 40 characters each):
///   "krin.runtime.curve.serverSecretKey" makes every XPUB bound by this
///   runtime a CURVE server; "krin.runtime.curve.serverPublicKey" makes every
///   SUB a CURVE client that only talks to the server holding that key, with
///   the key pair "krin.runtime.curve.publicKey" / "krin.runtime.curve.secretKey"
///   (a fresh pair when these are absent).
///   "krin.runtime.curve.authorizedKeys" (with serverSecretKey only): the
///   public keys of the subscribers that the XPUBs admit, separated by commas
///   and/or white space; the runtime then answers ZeroMQ's authentication
///   requests (ZapAuthenticator.h) and refuses every other key.
/// - "krin.runtime.inProcess": whether a subscriber of an endpoint that this
///   runtime binds is connected to it in process (LocalFanOut.h) instead of
///   over TCP. Absent: true. Taken only where the runtime's XPUBs would admit
///   its own SUBs over TCP, so that it never changes who may subscribe.
class KrinSocketOptions {
public:
    explicit KrinSocketOptions(const orlo::dabo::Dabo::Properties& properties);

    /// For an XPUB that publishes to other processes.
    void applyToPublishing(zmq::socket_t& xpub) const;
    /// For a SUB that receives from another process.
    void applyToSubscribing(zmq::socket_t& sub) const;

    bool curveServer() const { return !serverSecretKey.empty(); }
    bool curveClient() const { return !serverPublicKey.empty(); }
    /// Empty when every client that knows the server's key is admitted.
    const std::set<std::string>& authorizedClientKeys() const { return authorizedKeys; }
    static constexpr long defaultMaxMessageSize = 64L * 1024 * 1024;
    /// The longest message an XPUB takes from a subscriber. A subscription
    /// is one byte and a topic frame of four, but ZeroMQ's handshake commands
    /// (a CURVE client's among them) pass the same limit.
    static constexpr long longestSubscriptionMessage = 512;

    /// -1 for no limit.
    long messageSizeLimit() const { return maxMessageSize; }
    static constexpr long defaultMaxPeersPerEndpoint = 1000;
    /// The most connections one XPUB holds; -1 for no bound.
    long peersPerEndpointLimit() const { return maxPeersPerEndpoint; }
    /// The largest message an XPUB of this runtime takes from a subscriber.
    long subscriptionSizeLimit() const;
    /// Whether the runtime's own subscribers of its endpoints connect in process.
    bool inProcessPath() const { return inProcess; }

private:
    /// Whether this runtime's XPUBs would complete a handshake with its SUBs.
    bool admitsItsOwnSubscribers() const;

    long maxMessageSize = -1;
    long maxPeersPerEndpoint = defaultMaxPeersPerEndpoint;
    std::string serverSecretKey;
    std::string serverPublicKey;
    std::string clientPublicKey;
    std::string clientSecretKey;
    std::set<std::string> authorizedKeys;
    bool inProcess = true;
};

}  // namespace orlo::dabo::krin::detail
