#include "PublishingEndpoints.h"

#include <log4cplus/loggingmacros.h>

#include <chrono>
#include <utility>

#include "BindRetries.h"
#include "DealerForwarding.h"
#include "PollSet.h"
#include "SocketSetup.h"
#include "dabo/krin/detail/RuntimeSeam.h"
#include "dabo/util/DaboUtil.h"

namespace orlo::dabo::krin::detail {

namespace {

// Bounds the work of one turn of the runtime's loop, as for its other sockets.
constexpr int maxMessagesPerTurn = 1024;

}  // namespace

void PublishingEndpoints::bind(const std::string& endpoint) {
    if (endpoints.count(endpoint) != 0) {
        return;
    }
    auto xpub = std::make_unique<zmq::socket_t>(ctx.zmqContext, zmq::socket_type::xpub);
    xpub->set(zmq::sockopt::linger, 0);
    xpub->set(zmq::sockopt::sndhwm, ctx.highWaterMark);
    // Every subscriber's subscription reaches the runtime, not only a
    // topic's first, so that joins can be observed one by one.
    xpub->set(zmq::sockopt::xpub_verbose, 1);
    ctx.socketOptions.applyToPublishing(*xpub);
    allowIpv6For(*xpub, endpoint);
    // Watching from before the bind, so that no connection goes unseen;
    // declared after the socket, so that it stops first.
    std::unique_ptr<ConnectionMonitor> monitor;
    if (ctx.socketOptions.messageSizeLimit() > 0) {
        monitor = std::make_unique<ConnectionMonitor>(ctx.zmqContext, *xpub, ConnectionMonitor::Side::Publishing,
                                                      endpoint, ctx.socketOptions.messageSizeLimit());
    }
    xpub->bind(endpoint);
    LOG4CPLUS_TRACE(ctx.logger, "Bound endpoint " << endpoint);
    endpoints.emplace(endpoint, Endpoint{std::move(xpub), 0, std::move(monitor)});
    ctx.pollSet.invalidate();
}

void PublishingEndpoints::attach(const std::string& identity, const std::string& endpoint) {
    Endpoint& bound = endpoints.at(endpoint);
    const auto previous = publishers.find(identity);
    if (previous != publishers.end()) {
        const std::string previousEndpoint = previous->second;
        publishers.erase(previous);
        if (previousEndpoint != endpoint) {
            release(previousEndpoint);
        } else {
            --bound.publishers;
        }
    }
    ++bound.publishers;
    publishers[identity] = endpoint;
    ctx.forwarding.route(identity, *bound.xpub);
}

bool PublishingEndpoints::detach(const std::string& identity, std::string& endpoint) {
    const auto publisher = publishers.find(identity);
    if (publisher == publishers.end()) {
        return false;
    }
    endpoint = publisher->second;
    publishers.erase(publisher);
    ctx.forwarding.unroute(identity);
    release(endpoint);
    return true;
}

void PublishingEndpoints::release(const std::string& endpoint) {
    const auto found = endpoints.find(endpoint);
    if (found == endpoints.end() || --found->second.publishers > 0) {
        return;
    }
    endpoints.erase(found);
    ctx.bindRetries.released(endpoint, std::chrono::steady_clock::now());
    ctx.pollSet.invalidate();
    LOG4CPLUS_TRACE(ctx.logger, "Released endpoint " << endpoint);
}

void PublishingEndpoints::addTo(PollSet& pollSet) {
    for (auto& entry : endpoints) {
        const std::string& endpoint = entry.first;
        Endpoint& bound = entry.second;
        pollSet.add(*bound.xpub, &bound, [this, &endpoint, &bound] { readSubscriptions(endpoint, *bound.xpub); });
        if (bound.monitor) {
            pollSet.add(bound.monitor->socket(), &bound, [&bound] { bound.monitor->serve(); });
        }
    }
}

void PublishingEndpoints::closeAll() {
    for (const auto& publisher : publishers) {
        ctx.forwarding.unroute(publisher.first);
    }
    publishers.clear();
    endpoints.clear();
}

void PublishingEndpoints::readSubscriptions(const std::string& endpoint, zmq::socket_t& xpub) {
    for (int n = 0; n < maxMessagesPerTurn; ++n) {
        zmq::message_t subscription;
        if (!xpub.recv(subscription, zmq::recv_flags::dontwait)) {
            return;
        }
        if (subscription.size() == 0) {
            continue;
        }
        const bool subscribed = subscription.data<unsigned char>()[0] == 1;
        const std::string filter(subscription.data<char>() + 1, subscription.size() - 1);
        if (ctx.logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
            LOG4CPLUS_TRACE(ctx.logger, (subscribed ? "Subscription to " : "Unsubscription from ")
                                            << orlo::dabo::util::hexStr(filter) << " on " << endpoint);
        }
        ctx.seam.subscriptionSeen(endpoint, subscribed, filter);
    }
}

}  // namespace orlo::dabo::krin::detail
