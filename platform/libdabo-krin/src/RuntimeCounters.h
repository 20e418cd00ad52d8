#pragma once

#include <atomic>
#include <cstdint>

namespace orlo::dabo::krin::detail {

/// A counter written by the runtime's thread alone and read by any thread.
/// With a single writer a relaxed load and store is enough, and cheaper on
/// the forwarding path than a read-modify-write.
template <typename T>
class RuntimeCounter {
public:
    void add(T amount = 1) { value.store(value.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed); }
    void subtract(T amount = 1) {
        value.store(value.load(std::memory_order_relaxed) - amount, std::memory_order_relaxed);
    }
    void set(T amount) { value.store(amount, std::memory_order_relaxed); }
    T get() const { return value.load(std::memory_order_relaxed); }

private:
    std::atomic<T> value{0};
};

/// What a connection monitor counts for the socket it watches.
struct ConnectionCounters {
    RuntimeCounter<std::int64_t> peersConnected;
    RuntimeCounter<std::uint64_t> authenticationRefusals;
    /// Subscribing side: connections that ZeroMQ gave up without trying
    /// again, which a message above the size limit makes it do; each one is
    /// made afresh by the runtime.
    RuntimeCounter<std::uint64_t> connectionsCut;
};

/// The counters of one bound endpoint.
struct EndpointCounters {
    ConnectionCounters connections;
    RuntimeCounter<std::uint64_t> messagesForwarded;
    RuntimeCounter<std::uint64_t> messagesDropped;
    RuntimeCounter<std::uint64_t> messagesRefusedForSize;
    /// Subscribers of this runtime connected over the in-process path.
    RuntimeCounter<std::int64_t> inProcessSubscribers;
};

/// The counters of the subscriptions of one URI.
struct SubscriptionCounters {
    ConnectionCounters connections;
    RuntimeCounter<std::uint64_t> messagesDelivered;
    RuntimeCounter<std::uint64_t> messagesFailed;
    /// Connections to a publishing endpoint of the same runtime, in process.
    RuntimeCounter<std::int64_t> inProcessConnections;
    /// Messages above the size limit that the in-process path refused; on
    /// TCP each such message cuts the connection (connections.connectionsCut).
    RuntimeCounter<std::uint64_t> messagesRefusedForSize;
};

}  // namespace orlo::dabo::krin::detail
