#pragma once

#include <CLI/CLI.hpp>

#include <atomic>
#include <functional>
#include <iostream>
#include <string>

#include "tools/common/CommandLine.h"

namespace lumo::tools {

/// What the main of a tool that must finish its work after a signal does
/// around its body (a recorder closes its file, a player its publishers):
/// SIGINT and SIGTERM, taken by the tools' `StopSignal` (so this runs first
/// in main), set `interrupted` and the body ends on its own; the
/// runtime's log lines go to stderr, a `UsageError` ends with exit code 2 and
/// a pointer to --help, any other exception with exit code 3; each message is
/// headed by `tool`.
int runTool(const std::string& tool, const std::function<int(const std::atomic<bool>& interrupted)>& body);

/// Parses a CLI11 command line: false after printing --help, `UsageError`
/// for a command line that CLI11 refuses.
inline bool parseCommandLine(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return false;
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
    return true;
}

}  // namespace lumo::tools
