#pragma once

#include <ostream>
#include <string>

#include "lumotypes/host/Metrics.h"

namespace lumo::tools {

/// The runtime's counters, a line per endpoint and per subscription, each
/// headed by `tool`.
void printRuntimeMetrics(std::ostream& out, const std::string& tool, const lumotypes::host::RuntimeMetrics& metrics);

}  // namespace lumo::tools
