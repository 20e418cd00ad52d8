#pragma once

#include <stdexcept>
#include <string>
#include <utility>

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

/// `key=value` of a `-p` option, added to `properties`; a text without `=` or
/// with an empty key is refused.
void addProperty(orlo::dabo::Dabo::Properties& properties, const std::string& text);

/// The value of option `name` at `argv[index + 1]`, advancing `index`; refused
/// if the command line ends first.
std::string optionValue(int argc, char** argv, int& index, const std::string& name);

/// `text` as a positive number, for option `name`; refused otherwise.
double positiveNumber(const std::string& text, const std::string& name);

/// `text` as a non-negative whole number, for option `name`; refused otherwise.
unsigned long wholeNumber(const std::string& text, const std::string& name);

}  // namespace lumo::tools

namespace lumo::tools {

/// Checks the values of the properties that the runtime and the plug-in read,
/// with their own refusals (a `DaboException` naming the key and the value),
/// and warns on stderr of keys that neither reads.
void checkProperties(const orlo::dabo::Dabo::Properties& properties, const std::string& tool);

}  // namespace lumo::tools
