#include "LocalFanOut.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <utility>

#include "dabo/krin/detail/RuntimeSeam.h"

namespace orlo::dabo::krin::detail {

std::string inProcessAddressOf(const std::string& endpoint) {
    return "inproc://krin-endpoint/" + endpoint;
}

LocalFanOut::LocalFanOut(zmq::context_t& context, const std::string& endpoint, int highWaterMark,
                         long maxMessageSize, EndpointCounters& counters, RuntimeSeam& runtimeSeam,
                         log4cplus::Logger runtimeLogger)
    : tcpEndpoint(endpoint),
      inprocAddress(inProcessAddressOf(endpoint)),
      maxMessageSize(maxMessageSize),
      endpointCounters(counters),
      seam(runtimeSeam),
      logger(std::move(runtimeLogger)),
      pub(context, zmq::socket_type::pub) {
    pub.set(zmq::sockopt::linger, 0);
    pub.set(zmq::sockopt::sndhwm, highWaterMark);
    // As on the endpoint's XPUB: a full queue refuses the message, so that
    // the forwarding counts the drop.
    pub.set(zmq::sockopt::xpub_nodrop, 1);
    pub.bind(inprocAddress);
}

void LocalFanOut::joined(const void* subscriber, const std::string& topicFrame, SubscriptionCounters& counters) {
    // The SUB's connection is handed to the PUB as a command, which the PUB
    // takes at its next send unless it took others within the last
    // moment; asking for its events takes it now, subscription included.
    [[maybe_unused]] const int events = pub.get(zmq::sockopt::events);
    connected.push_back(Subscriber{subscriber, topicFrame, &counters});
    counters.inProcessConnections.add();
    endpointCounters.inProcessSubscribers.add();
    seam.subscriptionSeen(tcpEndpoint, true, topicFrame);
}

void LocalFanOut::left(const void* subscriber) {
    const auto found = std::find_if(connected.begin(), connected.end(),
                                    [subscriber](const Subscriber& entry) { return entry.key == subscriber; });
    if (found == connected.end()) {
        return;
    }
    found->counters->inProcessConnections.subtract();
    endpointCounters.inProcessSubscribers.subtract();
    seam.subscriptionSeen(tcpEndpoint, false, found->topicFrame);
    connected.erase(found);
}

bool LocalFanOut::refusedForSize(const zmq::message_t& topicFrame, std::size_t largestPart) {
    if (maxMessageSize <= 0 || largestPart <= static_cast<std::size_t>(maxMessageSize)) {
        return false;
    }
    const std::string topic = topicFrame.to_string();
    for (const Subscriber& subscriber : connected) {
        // A SUB takes what starts with its subscription.
        if (topic.compare(0, subscriber.topicFrame.size(), subscriber.topicFrame) == 0) {
            subscriber.counters->messagesRefusedForSize.add();
        }
    }
    unsigned long heldBack = 0;
    if (logLimiter.admit(tcpEndpoint, LogLimiter::Clock::now(), heldBack)) {
        LOG4CPLUS_ERROR(logger, "Refused a message with a part of " << largestPart << " bytes for the subscribers of "
                                                                     << tcpEndpoint << " in this process: above the "
                                                                     << "limit of " << maxMessageSize << " bytes"
                                                                     << LogLimiter::heldBackNote(heldBack));
    }
    return true;
}

}  // namespace orlo::dabo::krin::detail
