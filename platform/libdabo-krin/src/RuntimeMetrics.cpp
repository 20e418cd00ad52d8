#include "RuntimeMetrics.h"

namespace orlo::dabo::krin::detail {

namespace {

template <typename Counters>
Counters& counterSet(std::map<std::string, std::unique_ptr<Counters>>& sets, const std::string& label) {
    std::unique_ptr<Counters>& set = sets[label];
    if (!set) {
        set = std::make_unique<Counters>();
    }
    return *set;
}

}  // namespace

EndpointCounters& RuntimeMetrics::endpoint(const std::string& endpoint) {
    std::lock_guard<std::mutex> lock(mutex);
    return counterSet(endpoints, endpoint);
}

SubscriptionCounters& RuntimeMetrics::subscription(const std::string& uri) {
    std::lock_guard<std::mutex> lock(mutex);
    return counterSet(subscriptions, uri);
}

KrinMetrics RuntimeMetrics::snapshot() const {
    KrinMetrics metrics;
    std::lock_guard<std::mutex> lock(mutex);
    for (const auto& entry : endpoints) {
        const EndpointCounters& counters = *entry.second;
        EndpointMetrics endpoint;
        endpoint.endpoint = entry.first;
        endpoint.peersConnected = counters.connections.peersConnected.get();
        endpoint.messagesForwarded = counters.messagesForwarded.get();
        endpoint.messagesDropped = counters.messagesDropped.get();
        endpoint.messagesRefusedForSize = counters.messagesRefusedForSize.get();
        endpoint.authenticationRefusals = counters.connections.authenticationRefusals.get();
        endpoint.inProcessSubscribers = counters.inProcessSubscribers.get();
        metrics.endpoints.push_back(std::move(endpoint));
    }
    for (const auto& entry : subscriptions) {
        const SubscriptionCounters& counters = *entry.second;
        SubscriptionMetrics subscription;
        subscription.subscription = entry.first;
        subscription.peersConnected = counters.connections.peersConnected.get();
        subscription.messagesDelivered = counters.messagesDelivered.get();
        subscription.messagesFailed = counters.messagesFailed.get();
        subscription.messagesRefusedForSize =
            counters.connections.connectionsCut.get() + counters.messagesRefusedForSize.get();
        subscription.inProcessConnections = counters.inProcessConnections.get();
        subscription.authenticationRefusals = counters.connections.authenticationRefusals.get();
        metrics.subscriptions.push_back(std::move(subscription));
    }
    return metrics;
}

}  // namespace orlo::dabo::krin::detail
