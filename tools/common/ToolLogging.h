#pragma once

#include <string>

namespace lumo::tools {

/// Sends the log lines of the runtime and the plug-in, WARN and above, to
/// stderr; or configures log4cplus from `configFile` if it is not empty.
void configureToolLogging(const std::string& configFile = "");

}  // namespace lumo::tools
