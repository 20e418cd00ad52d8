#pragma once

#include <memory>
#include <string>

#include "tools/perf/PeerProcess.h"
#include "tools/perf/PerfOptions.h"
#include "tools/perf/Transport.h"

namespace lumo::perf {

/// The driving side of a one-way run (throughput, loop): this process's
/// endpoints and sender on a fresh port, and the peer subscribing to it in
/// `role`. Members end in reverse order: the peer first, the runtime last.
class OneWayDriver {
public:
    OneWayDriver(const PerfOptions& given, const std::string& self, const lumotypes::host::Plugin* plugin,
                 const std::string& topic, const std::string& role);

    /// Waits for the peer's subscriber; false, said on stderr, if it never joined.
    bool awaitSubscriber();

    const PerfOptions options;
    const ProcessEndpoints process;
    std::unique_ptr<Sender> sender;
    const std::unique_ptr<Peer> peer;
};

}  // namespace lumo::perf
