#include <sstream>
#include <string>
#include <vector>

#include "dabo/krin/KrinMetrics.h"

namespace orlo::dabo::krin {

namespace {

/// A label value with backslash, double quote and line feed escaped.
std::string escapedLabel(const std::string& value) {
    std::string escaped;
    escaped.reserve(value.size());
    for (const char c : value) {
        if (c == '\\') {
            escaped += "\\\\";
        } else if (c == '"') {
            escaped += "\\\"";
        } else if (c == '\n') {
            escaped += "\\n";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

/// One metric family: its help, its type and a sample per labelled item.
template <typename Item, typename Value>
void family(std::ostringstream& out, const char* name, const char* type, const char* help,
            const std::vector<Item>& items, const char* label, std::string Item::*labelValue, Value Item::*value) {
    out << "# HELP " << name << ' ' << help << '\n' << "# TYPE " << name << ' ' << type << '\n';
    for (const Item& item : items) {
        out << name << '{' << label << "=\"" << escapedLabel(item.*labelValue) << "\"} " << item.*value << '\n';
    }
}

}  // namespace

std::string toPrometheusText(const KrinMetrics& metrics) {
    std::ostringstream out;
    const auto& endpoints = metrics.endpoints;
    const auto& subscriptions = metrics.subscriptions;
    family(out, "krin_endpoint_peers_connected", "gauge", "Connections of subscribers now open on the endpoint.",
           endpoints, "endpoint", &EndpointMetrics::endpoint, &EndpointMetrics::peersConnected);
    family(out, "krin_messages_forwarded_total", "counter",
           "Messages of the endpoint's publishers sent on to its subscribers.", endpoints, "endpoint",
           &EndpointMetrics::endpoint, &EndpointMetrics::messagesForwarded);
    family(out, "krin_messages_dropped_total", "counter",
           "Messages of the endpoint's publishers dropped because a subscriber's queue was full.", endpoints, "endpoint",
           &EndpointMetrics::endpoint, &EndpointMetrics::messagesDropped);
    family(out, "krin_messages_refused_for_size_total", "counter",
           "Subscriptions refused because they were longer than a topic frame.", endpoints, "endpoint",
           &EndpointMetrics::endpoint, &EndpointMetrics::messagesRefusedForSize);
    family(out, "krin_authentication_refusals_total", "counter",
           "Subscribers' handshakes refused: a key not authorised or CURVE keys that do not match.", endpoints,
           "endpoint", &EndpointMetrics::endpoint, &EndpointMetrics::authenticationRefusals);
    family(out, "krin_endpoint_in_process_subscribers", "gauge",
           "Subscribers of the same runtime now connected to the endpoint in process.", endpoints, "endpoint",
           &EndpointMetrics::endpoint, &EndpointMetrics::inProcessSubscribers);
    family(out, "krin_subscription_peers_connected", "gauge",
           "Connections of the subscription to its publisher now open.", subscriptions, "subscription",
           &SubscriptionMetrics::subscription, &SubscriptionMetrics::peersConnected);
    family(out, "krin_messages_delivered_total", "counter", "Messages handed to the subscription's handlers.",
           subscriptions, "subscription", &SubscriptionMetrics::subscription, &SubscriptionMetrics::messagesDelivered);
    family(out, "krin_messages_failed_total", "counter",
           "Delivered messages that the subscription's handler failed to process.", subscriptions, "subscription",
           &SubscriptionMetrics::subscription, &SubscriptionMetrics::messagesFailed);
    family(out, "krin_subscription_messages_refused_for_size_total", "counter",
           "Messages above the size limit refused; over TCP each cuts the connection to the publisher.", subscriptions,
           "subscription", &SubscriptionMetrics::subscription, &SubscriptionMetrics::messagesRefusedForSize);
    family(out, "krin_subscription_authentication_failures_total", "counter",
           "Handshakes with the publisher that failed: this runtime's key refused or CURVE keys that do not match.",
           subscriptions, "subscription", &SubscriptionMetrics::subscription,
           &SubscriptionMetrics::authenticationRefusals);
    family(out, "krin_subscription_in_process_connections", "gauge",
           "Connections of the subscription to a publishing endpoint of the same runtime, in process.", subscriptions,
           "subscription", &SubscriptionMetrics::subscription, &SubscriptionMetrics::inProcessConnections);
    return out.str();
}

}  // namespace orlo::dabo::krin
