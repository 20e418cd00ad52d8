#pragma once

#include <memory>
#include <string>

#include "tools/perf/PerfOptions.h"

namespace lumotypes::host {
class Plugin;
}

namespace lumo::perf {

struct Endpoints;
class DriverLink;
class Peer;

// The driving sides: each starts its peer, measures, prints the result line
// and returns the exit status. `self` is this program, for a peer process.

/// Publishes until the subscriber reports.
int runThroughputPublisher(const PerfOptions& options, const std::string& self, const lumotypes::host::Plugin* plugin);
/// Pings, times the round trips.
int runPing(const PerfOptions& options, const std::string& self, const lumotypes::host::Plugin* plugin);
/// Publishes at the loop's rate, each sample carrying its send time.
int runLoopPublisher(const PerfOptions& options, const std::string& self, const lumotypes::host::Plugin* plugin);

// The peers' roles, in a peer process or on a thread of the driving one: the
// same code, talking to the driving side through `driver`.

/// Counts what arrives of a throughput run.
int runThroughputSubscriber(const PerfOptions& options, const Endpoints& endpoints, DriverLink& driver);
/// Sends every ping of a latency run back.
int runPong(const PerfOptions& options, const Endpoints& endpoints, DriverLink& driver);
/// Times every sample of a loop run from its send time to its arrival.
int runLoopSubscriber(const PerfOptions& options, const Endpoints& endpoints, DriverLink& driver);
/// The role that `options.role` names.
int runPeerRole(const PerfOptions& options, const Endpoints& endpoints, DriverLink& driver);

/// The peer of a run in `role`: a second process running this program
/// (`self`), or with `--in-process` the role on a thread of this process over
/// this process's `endpoints`, which must outlive the peer.
std::unique_ptr<Peer> startPeer(const PerfOptions& options, const std::string& role, const std::string& self,
                                const Endpoints& endpoints);

/// Subscribers the driving side waits for: its peer's, and with `--in-process`
/// also its own on the peer's endpoints, since both share one runtime that
/// counts them all.
int subscribersToAwait(const PerfOptions& options, int ofPeer, int ofDriver);

}  // namespace lumo::perf
