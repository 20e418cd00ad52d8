#pragma once

#include <log4cplus/logger.h>

#include <cstddef>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "RuntimeCounters.h"
#include "dabo/krin/detail/LogLimiter.h"

namespace orlo::dabo::krin::detail {

/// The in-process side of a publishing endpoint: a PUB bound at an inproc
/// address, to which this runtime's own subscribers of the endpoint connect
/// instead of going through TCP. A sample between components of one process
/// then crosses one ZeroMQ pipe, and neither the TCP stack nor an I/O thread.
///
/// A socket of its own rather than a second address of the endpoint's XPUB,
/// so that what a subscriber receives does not depend on the path: a SUB
/// refuses a message above the size limit on TCP, where ZeroMQ checks it,
/// but not on inproc, where nothing does. The forwarding therefore checks
/// the limit here (refusedForSize()) before it sends on.
class RuntimeSeam;

class LocalFanOut {
public:
    /// `endpoint`: the TCP endpoint it stands for; `maxMessageSize`: the
    /// subscribers' limit, -1 for none.
    LocalFanOut(zmq::context_t& context, const std::string& endpoint, int highWaterMark, long maxMessageSize,
                EndpointCounters& counters, RuntimeSeam& seam, log4cplus::Logger logger);

    const std::string& endpoint() const { return tcpEndpoint; }
    /// Where the subscribers connect.
    const std::string& address() const { return inprocAddress; }
    zmq::socket_t& socket() { return pub; }

    /// `subscriber` has connected, subscribed to `topicFrame`: the message
    /// sent next reaches it, as an endpoint's message does once the
    /// endpoint has seen the subscription.
    void joined(const void* subscriber, const std::string& topicFrame, SubscriptionCounters& counters);
    void left(const void* subscriber);
    /// How many subscribers are connected; with none, nothing is sent here.
    std::size_t subscribers() const { return connected.size(); }

    /// Whether a message with a part of `largestPart` bytes exceeds the
    /// limit; if so it is counted at the subscribers of its topic, and said.
    bool refusedForSize(const zmq::message_t& topicFrame, std::size_t largestPart);

private:
    struct Subscriber {
        const void* key;
        std::string topicFrame;
        SubscriptionCounters* counters;
    };

    std::string tcpEndpoint;
    std::string inprocAddress;
    long maxMessageSize;
    EndpointCounters& endpointCounters;
    RuntimeSeam& seam;
    log4cplus::Logger logger;
    LogLimiter logLimiter;
    zmq::socket_t pub;
    std::vector<Subscriber> connected;
};

/// The inproc address that stands for the TCP endpoint `endpoint` inside one
/// runtime (inproc addresses are private to a ZeroMQ context).
std::string inProcessAddressOf(const std::string& endpoint);

}  // namespace orlo::dabo::krin::detail
