#include "SubscriberSockets.h"

#include <log4cplus/loggingmacros.h>

#include <utility>

#include "EventAnnouncer.h"
#include "PollSet.h"
#include "SocketSetup.h"
#include "dabo/util/DaboUtil.h"

namespace orlo::dabo::krin::detail {

namespace {

// Bounds the events for one socket per turn of the loop, so that a busy
// subscriber cannot starve commands, timers and the other sockets.
constexpr int maxEventsPerTurn = 256;

}  // namespace

SubscriberSockets::SubscriberSockets(zmq::context_t& zmqContext, const KrinSocketOptions& options, int highWaterMark,
                                     PollSet& runtimePollSet, log4cplus::Logger runtimeLogger)
    : context(zmqContext),
      socketOptions(options),
      hwm(highWaterMark),
      pollSet(runtimePollSet),
      logger(std::move(runtimeLogger)) {}

std::shared_ptr<zmq::socket_t> SubscriberSockets::open(const std::string& endpoint, const std::string& topicIdFrame,
                                                       const std::weak_ptr<EventsHandler>& handler,
                                                       SubscriptionCounters& counters, bool countMessages) {
    auto socket = std::make_shared<zmq::socket_t>(context, zmq::socket_type::sub);
    socket->set(zmq::sockopt::linger, 0);
    socket->set(zmq::sockopt::rcvhwm, hwm);
    socketOptions.applyToSubscribing(*socket);
    allowIpv6For(*socket, endpoint);
    socket->set(zmq::sockopt::subscribe, topicIdFrame);
    // Watching from before the connection, so that none of its events goes unseen.
    std::unique_ptr<ConnectionMonitor> monitor;
    if (socketOptions.messageSizeLimit() > 0) {
        monitor = std::make_unique<ConnectionMonitor>(context, *socket, ConnectionMonitor::Side::Subscribing, endpoint,
                                                      socketOptions.messageSizeLimit());
        monitor->countInto(counters.connections);
    }
    try {
        socket->connect(endpoint);
    } catch (const zmq::error_t& e) {
        LOG4CPLUS_ERROR(logger, "Failed to connect subscriber to " << endpoint << ": " << e.what());
        monitor.reset();
        socket->close();
        return nullptr;
    }
    if (monitor) {
        pollSet.invalidate();
    }
    subscribers[socket.get()] = Subscriber{socket, handler, false, endpoint, std::move(monitor), &counters,
                                             countMessages};
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, "Registered subscriber " << orlo::dabo::util::hexStr(topicIdFrame) << " on "
                                                         << endpoint);
    }
    return socket;
}

void SubscriberSockets::startServing(zmq::socket_t* socket) {
    const auto found = subscribers.find(socket);
    if (found != subscribers.end()) {
        found->second.served = true;
        pollSet.invalidate();
    }
}

void SubscriberSockets::close(zmq::socket_t* socket) {
    const auto found = subscribers.find(socket);
    if (found == subscribers.end()) {
        return;
    }
    pollSet.forget(&found->second);
    closeSocket(found->second);
    subscribers.erase(found);
}

void SubscriberSockets::closeAll() {
    for (auto& subscriber : subscribers) {
        closeSocket(subscriber.second);
    }
    subscribers.clear();
}

void SubscriberSockets::closeSocket(Subscriber& subscriber) {
    subscriber.monitor.reset();
    subscriber.socket->close();
}

void SubscriberSockets::addTo(PollSet& set) {
    for (auto& entry : subscribers) {
        zmq::socket_t* key = entry.first;
        Subscriber& subscriber = entry.second;
        if (subscriber.served) {
            set.add(*subscriber.socket, &subscriber, [this, key] { serveReadable(key); });
        }
        if (subscriber.monitor) {
            set.add(subscriber.monitor->socket(), &subscriber, [this, &subscriber] {
                subscriber.monitor->serve();
                reconnectsPending = reconnectsPending || subscriber.monitor->nextDue().has_value();
            });
        }
    }
}

std::optional<std::chrono::steady_clock::time_point> SubscriberSockets::nextDue() const {
    std::optional<std::chrono::steady_clock::time_point> earliest;
    if (!reconnectsPending) {
        return earliest;
    }
    for (const auto& entry : subscribers) {
        const auto due = entry.second.monitor ? entry.second.monitor->nextDue() : std::nullopt;
        if (due && (!earliest || *due < *earliest)) {
            earliest = due;
        }
    }
    return earliest;
}

void SubscriberSockets::serveDue(std::chrono::steady_clock::time_point now) {
    if (!reconnectsPending) {
        return;
    }
    reconnectsPending = false;
    for (auto& entry : subscribers) {
        if (entry.second.monitor) {
            entry.second.monitor->serveDue(now);
            reconnectsPending = reconnectsPending || entry.second.monitor->nextDue().has_value();
        }
    }
}

void SubscriberSockets::serveReadable(zmq::socket_t* key) {
    for (int n = 0; n < maxEventsPerTurn; ++n) {
        const auto found = subscribers.find(key);
        if (found == subscribers.end() || !found->second.served) {
            return;
        }
        std::shared_ptr<zmq::socket_t> socket = found->second.socket;
        SubscriptionCounters& counters = *found->second.counters;
        const bool counted = found->second.countMessages;
        bool handled = false;
        if (!deliverEvent(logger, found->second.handler, socket, POLLER_READABLE, &handled)) {
            close(key);
            return;
        }
        if (counted) {
            counters.messagesDelivered.add();
            counters.messagesFailed.add(handled ? 0 : 1);
        }
        if (socket->handle() == nullptr) {
            return;
        }
        // Frames the handler left unread stay where they are: they are readable,
        // so the next event hands them to the handler, which decides what they
        // mean. The runtime never edits a subscriber's stream.
        if ((socket->get(zmq::sockopt::events) & ZMQ_POLLIN) == 0) {
            return;
        }
    }
}

}  // namespace orlo::dabo::krin::detail
