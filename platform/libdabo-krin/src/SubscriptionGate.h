#pragma once

#include <log4cplus/logger.h>

#include <cstddef>
#include <map>
#include <string>
#include <zmq.hpp>

#include "RuntimeCounters.h"
#include "dabo/krin/detail/LogLimiter.h"

namespace orlo::dabo::krin::detail {

class RuntimeSeam;

/// Decides which subscriptions an XPUB of the runtime takes; the XPUB is in
/// ZeroMQ's manual mode, so it stores only what is taken here.
///
/// A subscription longer than a topic frame can match nothing that is sent,
/// and a subscriber needs one per topic: so longer ones are refused, and a
/// peer address holds at most maxSubscriptionsPerPeer. Either refusal is
/// logged at WARN with the peer's address, at most once per peer and
/// interval. ZeroMQ tells a subscription's peer by its IP address only, so
/// the subscribers of one host share the bound; a peer's subscriptions are
/// given back when it unsubscribes or goes away.
class SubscriptionGate {
public:
    /// The length of a topic frame.
    static constexpr std::size_t longestFilter = 4;
    static constexpr int maxSubscriptionsPerPeer = 1024;

    SubscriptionGate(std::string endpoint, RuntimeSeam& seam, log4cplus::Logger logger);

    /// Reads the (un)subscriptions waiting at `xpub`, up to a bound per
    /// call, and applies those it takes.
    void serve(zmq::socket_t& xpub);

    /// Counts the subscriptions refused for their size in `counter` from now on.
    void countRefusalsForSize(RuntimeCounter<std::uint64_t>& counter) { refusedForSize = &counter; }

private:
    void subscribe(zmq::socket_t& xpub, const std::string& filter, const char* peerAddress);
    void unsubscribe(zmq::socket_t& xpub, const std::string& filter, const char* peerAddress);
    void refuse(const std::string& peerAddress, const std::string& reason);

    std::string endpoint;
    RuntimeSeam& seam;
    log4cplus::Logger logger;
    /// Subscriptions taken, by peer address.
    std::map<std::string, int> heldByPeer;
    /// The peer addresses holding each filter, for the unsubscriptions that
    /// ZeroMQ makes when a peer goes away, which name no peer.
    std::multimap<std::string, std::string> holders;
    LogLimiter refusals;
    RuntimeCounter<std::uint64_t>* refusedForSize = nullptr;
};

}  // namespace orlo::dabo::krin::detail
