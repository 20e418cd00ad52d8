#include "SubscriberSockets.h"

#include <log4cplus/loggingmacros.h>

#include <utility>

#include "dabo/krin/detail/CoLocation.h"
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
                                                       SubscriptionCounters& counters, bool countMessages,
                                                       LocalFanOut* local) {
    auto socket = std::make_shared<zmq::socket_t>(context, zmq::socket_type::sub);
    socket->set(zmq::sockopt::linger, 0);
    socket->set(zmq::sockopt::rcvhwm, hwm);
    socketOptions.applyToSubscribing(*socket);
    allowIpv6For(*socket, endpoint);
    socket->set(zmq::sockopt::subscribe, topicIdFrame);
    // Stored before it connects: the in-process side knows it by its place.
    Subscriber& subscriber = subscribers[socket.get()] =
        Subscriber{socket, handler, false, endpoint, topicIdFrame, nullptr, &counters, countMessages, nullptr};
    try {
        if (local != nullptr) {
            connectInProcess(subscriber, *local);
        } else {
            connectOverTcp(subscriber);
        }
    } catch (const zmq::error_t& e) {
        LOG4CPLUS_ERROR(logger, "Failed to connect subscriber to " << endpoint << ": " << e.what());
        closeSocket(subscriber);
        subscribers.erase(socket.get());
        return nullptr;
    }
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, "Registered subscriber " << orlo::dabo::util::hexStr(topicIdFrame) << " on " << endpoint
                                                         << (local != nullptr ? " in process" : ""));
    }
    return socket;
}

void SubscriberSockets::connectOverTcp(Subscriber& subscriber) {
    if (socketOptions.messageSizeLimit() > 0) {
        // Watching from before the connection, so that none of its events goes unseen.
        subscriber.monitor = std::make_unique<ConnectionMonitor>(context, *subscriber.socket,
                                                                 ConnectionMonitor::Side::Subscribing,
                                                                 subscriber.endpoint, socketOptions.messageSizeLimit());
        subscriber.monitor->countInto(subscriber.counters->connections);
        pollSet.invalidate();
    }
    subscriber.socket->connect(subscriber.endpoint);
}

void SubscriberSockets::connectInProcess(Subscriber& subscriber, LocalFanOut& local) {
    // A connection to an earlier in-process side of the endpoint, whose
    // publishers have gone, may still be listed; it must not be doubled.
    try {
        subscriber.socket->disconnect(local.address());
    } catch (const zmq::error_t&) {
    }
    subscriber.socket->connect(local.address());
    subscriber.local = &local;
    local.joined(&subscriber, subscriber.topicFrame, *subscriber.counters);
}

void SubscriberSockets::localEndpointBound(LocalFanOut& local) {
    for (auto& entry : subscribers) {
        Subscriber& subscriber = entry.second;
        if (subscriber.local != nullptr || !reachesListener(subscriber.endpoint, local.endpoint())) {
            continue;
        }
        // Its TCP connection waits for a listener that is only now bound, in
        // this runtime: nothing has come over it yet, so nothing is lost.
        subscriber.monitor.reset();
        pollSet.invalidate();
        try {
            subscriber.socket->disconnect(subscriber.endpoint);
            connectInProcess(subscriber, local);
        } catch (const zmq::error_t& e) {
            LOG4CPLUS_ERROR(logger, "Failed to connect subscriber to " << subscriber.endpoint << " in process: "
                                                                       << e.what());
        }
    }
}

void SubscriberSockets::localEndpointReleasing(LocalFanOut& local) {
    for (auto& entry : subscribers) {
        Subscriber& subscriber = entry.second;
        if (subscriber.local != &local) {
            continue;
        }
        local.left(&subscriber);
        subscriber.local = nullptr;
        // The in-process connection stays until its last messages are read;
        // ZeroMQ ends it after them.
        try {
            connectOverTcp(subscriber);
        } catch (const zmq::error_t& e) {
            LOG4CPLUS_ERROR(logger, "Failed to connect subscriber to " << subscriber.endpoint << ": " << e.what());
        }
    }
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
    if (subscriber.local != nullptr) {
        subscriber.local->left(&subscriber);
        subscriber.local = nullptr;
    }
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
