#pragma once

#include <functional>
#include <stdexcept>
#include <string>

#include "dabo/Dabo.h"

namespace lumo::tools {

/// A command line that a tool refuses; `what()` is the message the user sees.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Exit codes shared by the tools, as their --help texts document them.
enum ExitCode : int {
    exitOk = 0,
    /// the run completed but found lost or differing samples
    exitFailed = 1,
    /// a bad argument, URI, topic, property or value
    exitUsage = 2,
    /// the plug-in or the runtime could not be set up
    exitSetup = 3,
};

/// Checks the values of the properties that the runtime and the plug-in read,
/// with their own refusals (a `DaboException` naming the key and the value),
/// and warns on stderr of keys that neither reads.
void checkProperties(const orlo::dabo::Dabo::Properties& properties, const std::string& tool);

/// Runs `work` and turns what it throws into an exit code and a line on
/// stderr headed by `tool`: a `UsageError` into 2, anything else into 3.
int exitCodeOf(const std::string& tool, const std::function<int()>& work);

/// Runs a tool's `work` until it returns or a signal stops it (see
/// `runUntilStopped`) and turns what it throws into an exit code and a line
/// on stderr: a `UsageError` into 2, anything else into 3.
int runTool(const std::string& tool, const std::function<int()>& work);

}  // namespace lumo::tools
