#include "DealerForwarding.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "LocalFanOut.h"
#include "dabo/krin/detail/RuntimeSeam.h"

namespace orlo::dabo::krin::detail {

namespace {

// Bounds the work of one turn of the runtime's loop, so that busy dealers
// cannot starve commands, timers and the other sockets.
constexpr int maxMessagesPerTurn = 1024;

}  // namespace

DealerForwarding::DealerForwarding(zmq::context_t& context, const std::string& address, int highWaterMark,
                                   RuntimeSeam& runtimeSeam, log4cplus::Logger runtimeLogger)
    : seam(runtimeSeam), logger(std::move(runtimeLogger)), routerSocket(context, zmq::socket_type::router) {
    routerSocket.set(zmq::sockopt::linger, 0);
    routerSocket.set(zmq::sockopt::rcvhwm, highWaterMark);
    routerSocket.bind(address);
}

void DealerForwarding::route(const std::string& identity, zmq::socket_t& xpub, LocalFanOut* local,
                             EndpointCounters* counters) {
    routes[identity] = Route{&xpub, local, counters};
    lastRoute = nullptr;
}

void DealerForwarding::unroute(const std::string& identity) {
    routes.erase(identity);
    lastRoute = nullptr;
}

bool DealerForwarding::sharedByOthers(const Route& route) {
    // Without counters nobody can tell; the other subscribers come first.
    return route.counters == nullptr || route.counters->connections.peersConnected.get() > 1;
}

const DealerForwarding::Route* DealerForwarding::routeOf(const zmq::message_t& routing) {
    if (lastRoute != nullptr && routing.size() == lastIdentity.size() &&
        std::memcmp(routing.data(), lastIdentity.data(), lastIdentity.size()) == 0) {
        return lastRoute;
    }
    lastIdentity.assign(routing.data<char>(), routing.size());
    const auto found = routes.find(lastIdentity);
    lastRoute = found != routes.end() ? &found->second : nullptr;
    return lastRoute;
}

void DealerForwarding::readParts(bool more) {
    parts.clear();
    while (more) {
        // The parts of a message arrive together, so none is waited for.
        parts.emplace_back();
        if (!routerSocket.recv(parts.back(), zmq::recv_flags::dontwait)) {
            parts.pop_back();
            return;
        }
        more = parts.back().more();
    }
}

LocalFanOut* DealerForwarding::localReceiverOf(const Route& route) const {
    if (route.local == nullptr || route.local->subscribers() == 0 || parts.empty()) {
        return nullptr;
    }
    std::size_t largest = 0;
    for (const zmq::message_t& part : parts) {
        largest = std::max(largest, part.size());
    }
    return route.local->refusedForSize(parts.front(), largest) ? nullptr : route.local;
}

bool DealerForwarding::send(zmq::socket_t& socket, bool keepParts, bool shared) {
    bool lossyResend = false;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        zmq::message_t copy;
        if (keepParts) {
            copy.copy(parts[i]);
        }
        zmq::message_t& frame = keepParts ? copy : parts[i];
        const bool more = i + 1 < parts.size();
        const zmq::send_flags flags =
            more ? zmq::send_flags::sndmore | zmq::send_flags::dontwait : zmq::send_flags::dontwait;
        if (i == 0) {
            // In no-drop mode a subscriber's full queue refuses the whole
            // message here, before any of it is sent, so that it can be
            // counted. Where other peers share the socket it still goes to
            // those with room: sent once more without the no-drop mode, it is
            // dropped for the full queue alone, as ZeroMQ would have done, so
            // one stalled subscriber never holds back the others.
            if (socket.send(frame, flags)) {
                continue;
            }
            if (!shared) {
                return true;
            }
            lossyResend = true;
            socket.set(zmq::sockopt::xpub_nodrop, 0);
            socket.send(frame, flags);
        } else if (!socket.send(frame, flags)) {
            // ZeroMQ decides about the queues on the first part only, so the
            // rest of an accepted message is never refused; should it be, the
            // message is completed rather than cut.
            socket.send(frame, more ? zmq::send_flags::sndmore : zmq::send_flags::none);
        }
    }
    if (lossyResend) {
        socket.set(zmq::sockopt::xpub_nodrop, 1);
    }
    return lossyResend;
}

void DealerForwarding::forward() {
    for (int n = 0; n < maxMessagesPerTurn; ++n) {
        zmq::message_t routing;
        if (!routerSocket.recv(routing, zmq::recv_flags::dontwait)) {
            return;
        }
        const Route* route = routeOf(routing);
        readParts(routing.more());
        if (route == nullptr) {
            dropped(routing);
            continue;
        }
        if (parts.empty()) {
            continue;
        }
        bool refused = false;
        if (LocalFanOut* local = localReceiverOf(*route)) {
            // Copies for the subscribers in this process: they share the
            // parts' buffers, which the XPUB then takes over.
            refused = send(local->socket(), true, local->subscribers() > 1);
        }
        refused = send(*route->xpub, false, sharedByOthers(*route)) || refused;
        if (route->counters != nullptr) {
            (refused ? route->counters->messagesDropped : route->counters->messagesForwarded).add();
        }
    }
}

void DealerForwarding::dropped(const zmq::message_t& routing) {
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, "Dropped a message of unregistered dealer " << routing.to_string());
    }
    seam.messageDropped(routing.to_string());
}

}  // namespace orlo::dabo::krin::detail
