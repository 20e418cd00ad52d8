#pragma once

#include <log4cplus/logger.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>
#include <zmq.hpp>

#include "RuntimeCounters.h"

namespace orlo::dabo::krin::detail {

class LocalFanOut;
class RuntimeSeam;

/// The runtime's ROUTER, to which every dealer connects, and the route of
/// each registered dealer to the XPUB of its endpoint and to the endpoint's
/// in-process side. Frames of a dealer without a route are dropped.
class DealerForwarding {
public:
    DealerForwarding(zmq::context_t& context, const std::string& address, int highWaterMark, RuntimeSeam& seam,
                     log4cplus::Logger logger);

    zmq::socket_t& router() { return routerSocket; }

    /// From now on the frames of the dealer `identity` go to `xpub`, and to
    /// `local` (unless null) while subscribers of this runtime are connected
    /// to it; both are in no-drop mode (ZMQ_XPUB_NODROP). Counted in
    /// `counters` unless null.
    void route(const std::string& identity, zmq::socket_t& xpub, LocalFanOut* local, EndpointCounters* counters);
    /// From now on the frames of the dealer `identity` are dropped.
    void unroute(const std::string& identity);

    /// Moves the waiting messages of the dealers to their endpoints, up to a
    /// bound per call: the routing frame is dropped, the others are handed
    /// over without a copy of their bytes.
    void forward();

private:
    struct Route {
        zmq::socket_t* xpub;
        LocalFanOut* local;
        EndpointCounters* counters;
    };

    /// The route of the dealer that sent `routing`, or null. The last one
    /// found is kept: a busy dealer's messages come in runs.
    const Route* routeOf(const zmq::message_t& routing);
    /// Reads the parts that follow the routing frame into `parts`.
    void readParts(bool more);
    /// Sends `parts` on `socket`, the parts themselves or (`keepParts`) copies
    /// that share their buffers. True if a full queue refused the message;
    /// where `sharedByOthers`, the subscribers with room still get it.
    bool send(zmq::socket_t& socket, bool keepParts, bool sharedByOthers);
    /// The in-process side that is to get the current message, or null.
    LocalFanOut* localReceiverOf(const Route& route) const;
    void dropped(const zmq::message_t& routing);
    /// Whether peers other than a stalled one may wait for the route's messages.
    static bool sharedByOthers(const Route& route);

    RuntimeSeam& seam;
    log4cplus::Logger logger;
    zmq::socket_t routerSocket;
    std::unordered_map<std::string, Route> routes;
    std::string lastIdentity;
    const Route* lastRoute = nullptr;
    /// The parts of the message being forwarded; kept, so that their slots
    /// are not allocated afresh for each message.
    std::vector<zmq::message_t> parts;
};

}  // namespace orlo::dabo::krin::detail
