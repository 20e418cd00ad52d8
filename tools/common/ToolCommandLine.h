#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

#include "dabo/Dabo.h"

namespace lumo::tools {

/// The command line of a tool, on CLI11, with the options that several tools
/// share defined once here so that they are spelt, explained and checked the
/// same everywhere. `--help` and `--version` print to stdout and end with 0;
/// a refused argument prints "TOOL: MESSAGE" and a pointer to --help on
/// stderr and ends with 2.
class ToolCommandLine {
public:
    ToolCommandLine(const std::string& tool, const std::string& description);

    CLI::App& app() { return cli; }

    /// URI, the first positional argument; `meaning` completes its help line.
    void addUri(std::string& uri, const std::string& meaning);
    /// TOPIC, a positional argument; its help lists the topics.
    void addTopic(std::string& topic);
    /// `-p KEY=VALUE`, repeatable, into `properties`.
    void addProperties(orlo::dabo::Dabo::Properties& properties, const std::string& example);
    /// The five CURVE options, each setting one krin.runtime.curve.* property.
    void addCurveOptions(orlo::dabo::Dabo::Properties& properties);
    /// `--metrics-address HOST:PORT`, setting krin.runtime.metricsAddress.
    void addMetricsAddress(orlo::dabo::Dabo::Properties& properties);
    /// `--plugin PATH`, defaulting to the plug-in beside the tools.
    void addPlugin(std::string& path);

    /// Parses; the exit code to end with if the tool should not go on (help,
    /// version or a refused argument, already printed), otherwise nothing.
    std::optional<int> parse(int argc, char** argv);

private:
    std::string tool;
    CLI::App cli;
};

/// Refuses a number outside [min, max], or a text that is not a number, naming
/// what the number is: "2e-10 is not in 1e-06 .. 1e+06 (samples per second)".
CLI::Validator numberIn(double min, double max, const std::string& what);

/// Refuses a text that is not a whole number in [min, max], naming what it counts.
CLI::Validator wholeNumberIn(unsigned long long min, unsigned long long max, const std::string& what);

/// The footer of every tool's --help: what its exit codes mean; `whatFails`
/// says when it ends with 1, empty if it never does.
std::string exitStatusText(const std::string& whatFails);

}  // namespace lumo::tools
