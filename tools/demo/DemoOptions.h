#pragma once

#include <ostream>
#include <string>

#include "dabo/Dabo.h"

namespace lumo::demo {

/// What the demo's command line sets.
struct DemoOptions {
    /// How long the loop runs, in seconds.
    double duration = 3.0;
    /// The sensor's rate, samples per second.
    double sensorRate = 1000.0;
    /// 0: a free port on 127.0.0.1 is chosen.
    int port = 0;
    std::string plugin;
    /// Empty: the configuration shipped with the demo.
    std::string logConfig;
    orlo::dabo::Dabo::Properties properties;
    bool quiet = false;
    bool help = false;
    /// The loop runs authenticated and encrypted: a server key pair for the
    /// publishing side and a client key pair, the only one admitted, are
    /// made for the run and set as the runtime's CURVE properties.
    bool curve = false;
    /// krin-scope is started on the demo's topics and serves its page until
    /// the user interrupts.
    bool scope = false;
};

/// Parses the command line; throws `lumo::tools::UsageError` for a bad one.
DemoOptions parseDemoOptions(int argc, char** argv);

void printDemoUsage(std::ostream& out);

}  // namespace lumo::demo
