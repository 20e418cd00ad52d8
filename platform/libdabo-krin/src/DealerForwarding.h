#pragma once

#include <log4cplus/logger.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <zmq.hpp>

#include "RuntimeCounters.h"

namespace orlo::dabo::krin::detail {

class RuntimeSeam;

/// The runtime's ROUTER, to which every dealer connects, and the route of
/// each registered dealer to the XPUB of its endpoint. Frames of a dealer
/// without a route are dropped.
class DealerForwarding {
public:
    DealerForwarding(zmq::context_t& context, const std::string& address, int highWaterMark, RuntimeSeam& seam,
                     log4cplus::Logger logger);

    zmq::socket_t& router() { return routerSocket; }

    /// From now on the frames of the dealer `identity` go to `xpub`, which is
    /// in no-drop mode (ZMQ_XPUB_NODROP), counted in `counters` unless null.
    void route(const std::string& identity, zmq::socket_t& xpub, EndpointCounters* counters) {
        routes[identity] = Route{&xpub, counters};
    }
    /// From now on the frames of the dealer `identity` are dropped.
    void unroute(const std::string& identity) { routes.erase(identity); }

    /// Moves the waiting messages of the dealers to their XPUBs, up to a
    /// bound per call: the routing frame is dropped, the others are handed
    /// over without a copy.
    void forward();

private:
    struct Route {
        zmq::socket_t* xpub;
        EndpointCounters* counters;
    };

    void dropped(const zmq::message_t& routing);
    /// Whether peers other than a stalled one may wait for the route's messages.
    static bool sharedByOthers(const Route& route);

    RuntimeSeam& seam;
    log4cplus::Logger logger;
    zmq::socket_t routerSocket;
    std::unordered_map<std::string, Route> routes;
};

}  // namespace orlo::dabo::krin::detail
