#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/common/ToolCommandLine.h"

namespace lumo::perf {

/// What one krin-perf process does. The driving process runs the publisher
/// (throughput, loop) or the pinging side (latency) and starts its peer, a
/// second krin-perf process with `--role`, or with `--in-process` the same
/// role on a thread of its own over the same runtime.
struct PerfOptions {
    /// "throughput", "latency" or "loop".
    std::string test = "throughput";
    /// "plugin": through the plug-in's factories; "raw": three frames of the
    /// same sizes through the runtime alone.
    std::string impl = "plugin";
    /// How the receiving side takes samples: "read", "poll", "listener", "notifier".
    std::string readMode = "listener";
    /// Bytes of float array per sample (HokuTopicIn coefficients).
    std::size_t size = 1024;
    /// Measured seconds of a throughput run.
    double seconds = 3.0;
    /// Seconds after the first sample that a throughput subscriber does not count.
    double warmupSeconds = 0.5;
    /// Samples per second that a throughput publisher offers (0: as fast as it
    /// can), or that the loop's publisher keeps to.
    double rate = 0.0;
    /// Round trips of a latency run (after warm-up round trips).
    long roundTrips = 5000;
    /// Where a latency run writes every round-trip half, a loop run every
    /// one-way latency, in microseconds, one a line.
    std::string latencyOut;
    /// The plug-in to load; its default is set by definePerfOptions.
    std::string plugin;
    /// Properties of the runtimes of both processes (-p KEY=VALUE).
    std::map<std::string, std::string> runtimeProperties;
    /// The result as one JSON object instead of a RESULT line.
    bool json = false;
    /// Both sides in this one process over one runtime, the peer's role on threads.
    bool inProcess = false;

    // Set on a peer process only.
    std::string role;
    int portA = 0;
    int portB = 0;
};

/// The subcommands `throughput`, `latency` and `loop` and their options on `line`,
/// parsed into `options`; `test` is set by the subcommand given.
void definePerfOptions(lumo::tools::ToolCommandLine& line, PerfOptions& options);

/// What the option checks alone cannot tell; throws `lumo::tools::UsageError`.
void checkPerfOptions(const PerfOptions& options);

/// Samples a loop run may keep latencies of: its memory stays bounded.
constexpr double maxLoopSamples = 20e6;

/// The command line that starts the peer of `options` in `role`.
std::vector<std::string> peerArguments(const PerfOptions& options, const std::string& role);

}  // namespace lumo::perf
