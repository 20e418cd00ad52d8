#pragma once

#include "tools/perf/PerfOptions.h"

namespace lumotypes::host {
class Plugin;
}

namespace lumo::perf {

/// The driving side of a throughput run: publishes until the subscriber
/// process reports, then prints the RESULT line. Returns the exit status.
int runThroughputPublisher(const PerfOptions& options, const std::string& self, const lumotypes::host::Plugin* plugin);
/// The subscriber process of a throughput run.
int runThroughputSubscriber(const PerfOptions& options, const lumotypes::host::Plugin* plugin);
/// The driving side of a latency run: pings, times the round trips.
int runPing(const PerfOptions& options, const std::string& self, const lumotypes::host::Plugin* plugin);
/// The pong process of a latency run: sends every ping back.
int runPong(const PerfOptions& options, const lumotypes::host::Plugin* plugin);

}  // namespace lumo::perf
