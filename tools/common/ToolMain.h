#pragma once

#include <atomic>
#include <functional>
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

}  // namespace lumo::tools
