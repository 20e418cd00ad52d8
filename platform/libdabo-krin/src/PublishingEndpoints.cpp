#include "PublishingEndpoints.h"

#include <log4cplus/loggingmacros.h>

#include <chrono>
#include <utility>

#include "BindRetries.h"
#include "dabo/krin/detail/CoLocation.h"
#include "DealerForwarding.h"
#include "PeerLimit.h"
#include "PollSet.h"
#include "SocketSetup.h"
#include "dabo/krin/detail/RuntimeSeam.h"

namespace orlo::dabo::krin::detail {

void PublishingEndpoints::bind(const std::string& endpoint) {
    if (endpoints.count(endpoint) != 0) {
        return;
    }
    auto xpub = std::make_unique<zmq::socket_t>(ctx.zmqContext, zmq::socket_type::xpub);
    xpub->set(zmq::sockopt::linger, 0);
    xpub->set(zmq::sockopt::sndhwm, ctx.highWaterMark);
    // Every subscription reaches the runtime, which decides whether the
    // XPUB takes it (SubscriptionGate); joins are observed one by one.
    xpub->set(zmq::sockopt::xpub_verbose, 1);
    xpub->set(zmq::sockopt::xpub_manual, 1);
    // A subscriber's full queue refuses the message instead of losing it
    // unseen, so that DealerForwarding can count the drop.
    xpub->set(zmq::sockopt::xpub_nodrop, 1);
    ctx.socketOptions.applyToPublishing(*xpub);
    allowIpv6For(*xpub, endpoint);
    // Watching from before the bind, so that no connection goes unseen;
    // declared after the socket, so that it stops first.
    auto monitor = std::make_unique<ConnectionMonitor>(ctx.zmqContext, *xpub, ConnectionMonitor::Side::Publishing,
                                                       endpoint, ctx.socketOptions.subscriptionSizeLimit());
    EndpointCounters& counters = ctx.metrics.endpoint(endpoint);
    monitor->countInto(counters.connections);
    monitor->limitPeers(
        std::make_unique<PeerLimit>(endpoint, ctx.socketOptions.peersPerEndpointLimit(), ctx.logger));
    xpub->bind(endpoint);
    LOG4CPLUS_TRACE(ctx.logger, "Bound endpoint " << endpoint);
    auto gate = std::make_unique<SubscriptionGate>(endpoint, ctx.seam, ctx.logger);
    gate->countRefusalsForSize(counters.messagesRefusedForSize);
    std::unique_ptr<LocalFanOut> local;
    if (ctx.socketOptions.inProcessPath()) {
        local = std::make_unique<LocalFanOut>(ctx.zmqContext, endpoint, ctx.highWaterMark,
                                              ctx.socketOptions.messageSizeLimit(), counters, ctx.seam, ctx.logger);
    }
    Endpoint& bound =
        endpoints.emplace(endpoint, Endpoint{std::move(xpub), 0, std::move(monitor), std::move(gate), &counters,
                                             std::move(local)})
            .first->second;
    ctx.pollSet.invalidate();
    if (bound.local && localObserver != nullptr) {
        localObserver->localEndpointBound(*bound.local);
    }
}

LocalFanOut* PublishingEndpoints::localEndpointReaching(const std::string& endpoint) {
    for (auto& entry : endpoints) {
        if (entry.second.local && reachesListener(endpoint, entry.first)) {
            return entry.second.local.get();
        }
    }
    return nullptr;
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
    ctx.forwarding.route(identity, *bound.xpub, bound.local.get(),
                         ctx.seam.countsMessages() ? bound.counters : nullptr);
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
    if (found->second.local && localObserver != nullptr) {
        localObserver->localEndpointReleasing(*found->second.local);
    }
    endpoints.erase(found);
    ctx.bindRetries.released(endpoint, std::chrono::steady_clock::now());
    ctx.pollSet.invalidate();
    LOG4CPLUS_TRACE(ctx.logger, "Released endpoint " << endpoint);
}

void PublishingEndpoints::addTo(PollSet& pollSet) {
    for (auto& entry : endpoints) {
        Endpoint& bound = entry.second;
        pollSet.add(*bound.xpub, &bound, [&bound] { bound.gate->serve(*bound.xpub); });
        pollSet.add(bound.monitor->socket(), &bound, [&bound] { bound.monitor->serve(); });
    }
}

void PublishingEndpoints::closeAll() {
    for (const auto& publisher : publishers) {
        ctx.forwarding.unroute(publisher.first);
    }
    publishers.clear();
    for (auto& entry : endpoints) {
        if (entry.second.local && localObserver != nullptr) {
            localObserver->localEndpointReleasing(*entry.second.local);
        }
    }
    endpoints.clear();
}

}  // namespace orlo::dabo::krin::detail
