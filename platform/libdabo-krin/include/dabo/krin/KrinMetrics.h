#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orlo::dabo::krin {

/// What the runtime counted on one bound endpoint since it was first bound
/// (counts go on across a release and a later bind of the same endpoint).
struct EndpointMetrics {
    /// "tcp://HOST:PORT" as the publishers registered it.
    std::string endpoint;
    /// Connections of subscribers now open (accepted, not yet closed).
    std::int64_t peersConnected = 0;
    /// Messages of the endpoint's publishers sent on to its subscribers.
    std::uint64_t messagesForwarded = 0;
    /// Messages of the endpoint's publishers that a subscriber's full queue
    /// (at krin.runtime.highWaterMark) refused; the other subscribers still
    /// get them (docs/metrics.md says when the count is exact).
    std::uint64_t messagesDropped = 0;
    /// Subscriptions refused for their size: longer than a topic frame.
    std::uint64_t messagesRefusedForSize = 0;
    /// Subscribers' handshakes refused: a key that is not authorised, or
    /// CURVE keys that do not match.
    std::uint64_t authenticationRefusals = 0;
    /// Subscribers of this runtime now connected over the in-process path,
    /// which counts in neither peersConnected nor any TCP figure.
    std::int64_t inProcessSubscribers = 0;
};

/// What the runtime counted for the subscriptions of one URI (all of this
/// runtime's subscribers of that URI together).
struct SubscriptionMetrics {
    /// "krin.ps://HOST:PORT/TOPIC".
    std::string subscription;
    /// Connections to the publisher now open (handshake completed).
    std::int64_t peersConnected = 0;
    /// Messages handed to the subscribers' handlers.
    std::uint64_t messagesDelivered = 0;
    /// Delivered messages whose handler could not process them.
    std::uint64_t messagesFailed = 0;
    /// Messages above krin.runtime.maxMessageSize refused. Over TCP each
    /// cuts the connection to the publisher, which the runtime then makes
    /// afresh (ZeroMQ tells such a cut from a protocol error of the peer by
    /// nothing); in process the message alone is refused.
    std::uint64_t messagesRefusedForSize = 0;
    /// Handshakes with the publisher that failed: this runtime's key refused,
    /// or CURVE keys that do not match.
    std::uint64_t authenticationRefusals = 0;
    /// Connections to a publishing endpoint of this same runtime, over the
    /// in-process path (not counted in peersConnected).
    std::int64_t inProcessConnections = 0;
};

/// A snapshot of the runtime's counters, ordered by endpoint and by URI.
struct KrinMetrics {
    std::vector<EndpointMetrics> endpoints;
    std::vector<SubscriptionMetrics> subscriptions;
};

/// The snapshot in the Prometheus text exposition format (version 0.0.4).
std::string toPrometheusText(const KrinMetrics& metrics);

}  // namespace orlo::dabo::krin
