#pragma once

#include <ostream>
#include <string>

#include "dabo/krin/detail/KrinMetrics.h"

namespace orlo::dabo::krin::detail {
class KrinDabo;
}

namespace lumo::tools {

/// "http://HOST:PORT/metrics" of a runtime's metrics page, "" when it has none.
std::string metricsPageOf(const orlo::dabo::krin::detail::KrinDabo& runtime);

/// The runtime's counters, a line per endpoint and per subscription, each
/// headed by `tool`.
void printRuntimeMetrics(std::ostream& out, const std::string& tool,
                         const orlo::dabo::krin::detail::KrinMetrics& metrics);

}  // namespace lumo::tools
