#include "DealerForwarding.h"

#include <log4cplus/loggingmacros.h>

#include <utility>

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

bool DealerForwarding::sharedByOthers(const Route& route) {
    // Without counters nobody can tell; the other subscribers come first.
    return route.counters == nullptr || route.counters->connections.peersConnected.get() > 1;
}

void DealerForwarding::forward() {
    for (int n = 0; n < maxMessagesPerTurn; ++n) {
        zmq::message_t routing;
        if (!routerSocket.recv(routing, zmq::recv_flags::dontwait)) {
            return;
        }
        const auto found = routes.find(routing.to_string());
        const Route* route = found != routes.end() ? &found->second : nullptr;
        bool more = routing.more();
        bool first = true;
        bool refused = false;
        bool lossyResend = false;
        while (more) {
            // The parts of a message arrive together, so none is waited for.
            zmq::message_t frame;
            if (!routerSocket.recv(frame, zmq::recv_flags::dontwait)) {
                break;
            }
            more = frame.more();
            if (route == nullptr) {
                continue;
            }
            // Sending hands the frame's buffer over; nothing is copied.
            const zmq::send_flags flags =
                more ? zmq::send_flags::sndmore | zmq::send_flags::dontwait : zmq::send_flags::dontwait;
            if (first) {
                // In no-drop mode a subscriber's full queue refuses the whole
                // message here, before any of it is sent, so that it can be
                // counted. Where other peers share the endpoint it still goes
                // to those with room: sent once more without the no-drop mode,
                // it is dropped for the full queue alone, as ZeroMQ would have
                // done, so one stalled subscriber never holds back the others.
                refused = !route->xpub->send(frame, flags);
                lossyResend = refused && sharedByOthers(*route);
                if (lossyResend) {
                    route->xpub->set(zmq::sockopt::xpub_nodrop, 0);
                    route->xpub->send(frame, flags);
                }
                first = false;
            } else if (!route->xpub->send(frame, flags)) {
                // ZeroMQ decides about the queues on the first frame only, so
                // the rest of an accepted message is never refused; should it
                // be, the message is completed rather than cut.
                route->xpub->send(frame, more ? zmq::send_flags::sndmore : zmq::send_flags::none);
            }
        }
        if (lossyResend) {
            route->xpub->set(zmq::sockopt::xpub_nodrop, 1);
        }
        if (route == nullptr) {
            dropped(routing);
        } else if (route->counters != nullptr && !first) {
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
