#pragma once

#include <log4cplus/logger.h>

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <zmq.hpp>

#include "ConnectionMonitor.h"
#include "KrinSocketOptions.h"
#include "LocalFanOut.h"
#include "RuntimeMetrics.h"
#include "SubscriptionGate.h"

namespace orlo::dabo::krin::detail {

class BindRetries;
class DealerForwarding;
class PollSet;
class RuntimeSeam;

/// Told when an endpoint's in-process side comes and goes, so that the
/// runtime's own subscribers of the endpoint move to it and back to TCP.
class LocalEndpointObserver {
public:
    virtual ~LocalEndpointObserver() = default;
    virtual void localEndpointBound(LocalFanOut& local) = 0;
    /// Called before the endpoint's sockets close.
    virtual void localEndpointReleasing(LocalFanOut& local) = 0;
};

/// The XPUBs that the runtime has bound, one per endpoint and shared by its
/// publishers, each with its in-process side (LocalFanOut) unless the
/// in-process path is off, and the endpoint of each registered publisher.
/// An XPUB is closed when its last publisher leaves.
class PublishingEndpoints {
public:
    struct Context {
        zmq::context_t& zmqContext;
        const KrinSocketOptions& socketOptions;
        int highWaterMark;
        PollSet& pollSet;
        DealerForwarding& forwarding;
        BindRetries& bindRetries;
        RuntimeSeam& seam;
        log4cplus::Logger logger;
        RuntimeMetrics& metrics;
    };

    explicit PublishingEndpoints(Context context) : ctx(std::move(context)) {}

    /// Tells `observer` of in-process sides from now on.
    void observeLocalEndpoints(LocalEndpointObserver& observer) { localObserver = &observer; }

    /// Binds an XPUB at `endpoint` unless this runtime has; throws the
    /// zmq::error_t of a failed bind.
    void bind(const std::string& endpoint);
    /// The in-process side of the bound endpoint that a subscriber of this
    /// runtime connecting to `endpoint` would reach over TCP; null if none.
    LocalFanOut* localEndpointReaching(const std::string& endpoint);
    /// Forwards the dealer `identity` to `endpoint`, bound before; a previous
    /// registration of the same dealer is replaced.
    void attach(const std::string& identity, const std::string& endpoint);
    /// Stops forwarding the dealer `identity`; false if it was not registered.
    bool detach(const std::string& identity, std::string& endpoint);

    /// Puts every XPUB and its monitor into the poll set.
    void addTo(PollSet& pollSet);
    /// Closes every XPUB.
    void closeAll();

private:
    struct Endpoint {
        std::unique_ptr<zmq::socket_t> xpub;
        int publishers = 0;
        /// Declared after the socket it watches, so that it stops first.
        std::unique_ptr<ConnectionMonitor> monitor;
        std::unique_ptr<SubscriptionGate> gate;
        EndpointCounters* counters;
        /// Null while the in-process path is off.
        std::unique_ptr<LocalFanOut> local;
    };

    void release(const std::string& endpoint);

    Context ctx;
    LocalEndpointObserver* localObserver = nullptr;
    std::map<std::string, Endpoint> endpoints;
    /// The endpoint of each registered dealer.
    std::unordered_map<std::string, std::string> publishers;
};

}  // namespace orlo::dabo::krin::detail
