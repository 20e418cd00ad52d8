// Where a run's peer runs: in a second process or on a thread of this one.
#include <stdexcept>

#include "tools/perf/PeerProcess.h"
#include "tools/perf/Runs.h"
#include "tools/perf/Transport.h"

namespace lumo::perf {

int runPeerRole(const PerfOptions& options, const Endpoints& endpoints, DriverLink& driver) {
    if (options.role == "sub") {
        return runThroughputSubscriber(options, endpoints, driver);
    }
    if (options.role == "pong") {
        return runPong(options, endpoints, driver);
    }
    if (options.role == "loop-sub") {
        return runLoopSubscriber(options, endpoints, driver);
    }
    throw std::invalid_argument("no peer role '" + options.role + "'");
}

std::unique_ptr<Peer> startPeer(const PerfOptions& options, const std::string& role, const std::string& self,
                                const Endpoints& endpoints) {
    if (!options.inProcess) {
        return std::make_unique<PeerProcess>(self, peerArguments(options, role));
    }
    PerfOptions peer = options;
    peer.role = role;
    return std::make_unique<PeerThread>(
        [peer, &endpoints](DriverLink& driver) { return runPeerRole(peer, endpoints, driver); });
}

int subscribersToAwait(const PerfOptions& options, int ofPeer, int ofDriver) {
    return options.inProcess ? ofPeer + ofDriver : ofPeer;
}

}  // namespace lumo::perf
