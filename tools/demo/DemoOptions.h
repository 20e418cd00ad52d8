#pragma once

#include <string>

#include "dabo/Dabo.h"
#include "tools/common/ToolCommandLine.h"

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
    /// The loop runs authenticated and encrypted: a server key pair for the
    /// publishing side and a client key pair, the only one admitted, are
    /// made for the run and set as the runtime's CURVE properties.
    bool curve = false;
    /// krin-scope is started on the demo's topics and serves its page until
    /// the user interrupts.
    bool scope = false;
};

/// The demo's options and help on `line`, parsed into `options`.
void defineDemoOptions(lumo::tools::ToolCommandLine& line, DemoOptions& options);

/// What follows from the options once parsed: with --curve, the key pairs of
/// the run. Throws `lumo::tools::UsageError` for options that do not go together.
void completeDemoOptions(DemoOptions& options);

}  // namespace lumo::demo
