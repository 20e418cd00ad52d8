#include "SubscriptionGate.h"

#include <log4cplus/loggingmacros.h>

#include <chrono>
#include <utility>

#include "dabo/krin/detail/RuntimeSeam.h"
#include "dabo/util/DaboUtil.h"

namespace orlo::dabo::krin::detail {

namespace {

// Bounds the work of one turn of the runtime's loop, as for its other sockets.
constexpr int maxMessagesPerTurn = 1024;

}  // namespace

constexpr std::size_t SubscriptionGate::longestFilter;
constexpr int SubscriptionGate::maxSubscriptionsPerPeer;

SubscriptionGate::SubscriptionGate(std::string boundEndpoint, RuntimeSeam& runtimeSeam, log4cplus::Logger runtimeLogger)
    : endpoint(std::move(boundEndpoint)), seam(runtimeSeam), logger(std::move(runtimeLogger)) {}

void SubscriptionGate::serve(zmq::socket_t& xpub) {
    for (int n = 0; n < maxMessagesPerTurn; ++n) {
        zmq::message_t message;
        if (!xpub.recv(message, zmq::recv_flags::dontwait)) {
            return;
        }
        if (message.size() == 0) {
            continue;
        }
        const unsigned char kind = message.data<unsigned char>()[0];
        const std::string filter(message.data<char>() + 1, message.size() - 1);
        // Null for the unsubscriptions ZeroMQ makes itself when a peer goes.
        const char* peerAddress = zmq_msg_gets(message.handle(), "Peer-Address");
        if (kind == 1) {
            subscribe(xpub, filter, peerAddress);
        } else if (kind == 0) {
            unsubscribe(xpub, filter, peerAddress);
        }
    }
}

void SubscriptionGate::subscribe(zmq::socket_t& xpub, const std::string& filter, const char* peerAddress) {
    const std::string peer = peerAddress != nullptr ? peerAddress : "";
    if (filter.size() > longestFilter) {
        if (refusedForSize != nullptr) {
            refusedForSize->add();
        }
        refuse(peer, "a subscription of " + std::to_string(filter.size()) + " bytes, longer than a topic frame (" +
                         std::to_string(longestFilter) + " bytes)");
        return;
    }
    int& held = heldByPeer[peer];
    if (held >= maxSubscriptionsPerPeer) {
        refuse(peer, "more than " + std::to_string(maxSubscriptionsPerPeer) + " subscriptions");
        return;
    }
    // In manual mode this applies to the peer whose message was read last.
    xpub.set(zmq::sockopt::subscribe, filter);
    ++held;
    holders.emplace(filter, peer);
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, "Subscription to " << orlo::dabo::util::hexStr(filter) << " on " << endpoint);
    }
    seam.subscriptionSeen(endpoint, true, filter);
}

void SubscriptionGate::unsubscribe(zmq::socket_t& xpub, const std::string& filter, const char* peerAddress) {
    // A peer's own unsubscription is applied here; ZeroMQ has already dropped
    // the subscriptions of a peer that went away.
    auto holder = holders.end();
    if (peerAddress != nullptr) {
        xpub.set(zmq::sockopt::unsubscribe, filter);
        const auto range = holders.equal_range(filter);
        for (auto it = range.first; it != range.second; ++it) {
            if (it->second == peerAddress) {
                holder = it;
                break;
            }
        }
    } else {
        holder = holders.find(filter);
    }
    if (holder == holders.end()) {
        return;  // Never taken, so nothing to give back and nobody to tell.
    }
    const auto held = heldByPeer.find(holder->second);
    if (held != heldByPeer.end() && --held->second <= 0) {
        heldByPeer.erase(held);
    }
    holders.erase(holder);
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, "Unsubscription from " << orlo::dabo::util::hexStr(filter) << " on " << endpoint);
    }
    seam.subscriptionSeen(endpoint, false, filter);
}

void SubscriptionGate::refuse(const std::string& peerAddress, const std::string& reason) {
    unsigned long heldBack = 0;
    if (!refusals.admit(peerAddress + " " + reason, std::chrono::steady_clock::now(), heldBack)) {
        return;
    }
    const std::string peer = peerAddress.empty() ? "an unknown address" : peerAddress;
    if (heldBack == 0) {
        LOG4CPLUS_WARN(logger, "Refused " << reason << " from " << peer << " at " << endpoint);
    } else {
        LOG4CPLUS_WARN(logger, "Refused " << reason << " from " << peer << " at " << endpoint << " (" << heldBack
                                          << " more times since the last report)");
    }
}

}  // namespace orlo::dabo::krin::detail
