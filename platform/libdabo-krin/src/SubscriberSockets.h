#pragma once

#include <log4cplus/logger.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <zmq.hpp>

#include "ConnectionMonitor.h"
#include "KrinSocketOptions.h"
#include "PublishingEndpoints.h"
#include "RuntimeCounters.h"
#include "dabo/krin/detail/EventsHandler.h"

namespace orlo::dabo::krin::detail {

class PollSet;

/// The SUB sockets of the registered subscribers, each with its handler.
/// A socket is served, one POLLER_READABLE per message while it stays
/// readable, only once its REGISTERED has been handed out.
///
/// A subscriber of an endpoint that this runtime binds is connected to the
/// endpoint's in-process side instead of TCP, from its registration or from
/// the moment the endpoint is bound, and goes back to TCP when the endpoint
/// is released, so that a publisher bound there later, in this process or
/// another, reaches it as before.
class SubscriberSockets : public LocalEndpointObserver {
public:
    SubscriberSockets(zmq::context_t& context, const KrinSocketOptions& options, int highWaterMark, PollSet& pollSet,
                      log4cplus::Logger logger);

    /// A SUB connected to `endpoint`, or to `local` where not null, with
    /// `topicIdFrame` as its only subscription, not yet served, counted in
    /// `counters` unless its messages are not to be (`countMessages`); null
    /// when it cannot connect (logged).
    std::shared_ptr<zmq::socket_t> open(const std::string& endpoint, const std::string& topicIdFrame,
                                        const std::weak_ptr<EventsHandler>& handler, SubscriptionCounters& counters,
                                        bool countMessages, LocalFanOut* local);
    bool contains(zmq::socket_t* socket) const { return subscribers.count(socket) != 0; }
    /// Serves the socket from now on, once its REGISTERED was delivered.
    void startServing(zmq::socket_t* socket);
    /// Stops serving the socket and closes it.
    void close(zmq::socket_t* socket);
    void closeAll();

    /// Puts every served socket and every monitor into the poll set.
    void addTo(PollSet& pollSet);

    /// The earliest time a dropped connection is to be made afresh.
    std::optional<std::chrono::steady_clock::time_point> nextDue() const;
    /// Makes afresh the dropped connections that are due.
    void serveDue(std::chrono::steady_clock::time_point now);

    void localEndpointBound(LocalFanOut& local) override;
    void localEndpointReleasing(LocalFanOut& local) override;

private:
    struct Subscriber {
        std::shared_ptr<zmq::socket_t> socket;
        std::weak_ptr<EventsHandler> handler;
        /// Polled only once REGISTERED has been handed out, so it comes first.
        bool served = false;
        std::string endpoint;
        std::string topicFrame;
        /// While a message size limit is set and the socket uses TCP.
        std::unique_ptr<ConnectionMonitor> monitor;
        SubscriptionCounters* counters;
        bool countMessages;
        /// The in-process side the socket is connected to; null on TCP.
        LocalFanOut* local = nullptr;
    };

    /// Hands the handler one event per waiting message, up to a bound.
    void serveReadable(zmq::socket_t* key);
    /// Stops watching the subscriber's socket, then closes it.
    static void closeSocket(Subscriber& subscriber);
    /// Connects over TCP, watched while a size limit is set; throws zmq::error_t.
    void connectOverTcp(Subscriber& subscriber);
    /// Connects to `local`; throws zmq::error_t.
    static void connectInProcess(Subscriber& subscriber, LocalFanOut& local);

    zmq::context_t& context;
    const KrinSocketOptions& socketOptions;
    int hwm;
    PollSet& pollSet;
    log4cplus::Logger logger;
    std::map<zmq::socket_t*, Subscriber> subscribers;
    /// Whether a monitor may hold a reconnection due: until one does, the
    /// event loop's turns do not look through the subscribers for it.
    bool reconnectsPending = false;
};

}  // namespace orlo::dabo::krin::detail
