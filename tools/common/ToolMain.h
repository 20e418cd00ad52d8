#pragma once

#include <CLI/CLI.hpp>

#include <atomic>
#include <functional>
#include <iostream>
#include <string>

#include "tools/common/CommandLine.h"

namespace lumo::tools {

/// What every tool's main does around its body: SIGINT and SIGTERM set
/// `interrupted` (so that files are closed and sockets drained), the
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
