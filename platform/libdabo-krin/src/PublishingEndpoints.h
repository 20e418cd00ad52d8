#pragma once

#include <log4cplus/logger.h>

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <zmq.hpp>

#include "ConnectionMonitor.h"
#include "KrinSocketOptions.h"
#include "RuntimeMetrics.h"
#include "SubscriptionGate.h"

namespace orlo::dabo::krin::detail {

class BindRetries;
class DealerForwarding;
class PollSet;
class RuntimeSeam;

/// The XPUBs that the runtime has bound, one per endpoint and shared by its
/// publishers, and the endpoint of each registered publisher. An XPUB is
/// closed when its last publisher leaves.
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

    /// Binds an XPUB at `endpoint` unless this runtime has; throws the
    /// zmq::error_t of a failed bind.
    void bind(const std::string& endpoint);
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
    };

    void release(const std::string& endpoint);

    Context ctx;
    std::map<std::string, Endpoint> endpoints;
    /// The endpoint of each registered dealer.
    std::unordered_map<std::string, std::string> publishers;
};

}  // namespace orlo::dabo::krin::detail
