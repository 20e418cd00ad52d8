#pragma once

// What a runtime counted (messages forwarded, dropped, delivered, failed,
// connections and refusals), for a host that shows or exports it.

#include <string>

#include "dabo/krin/KrinMetrics.h"
#include "lumotypes/host/Export.h"
#include "lumotypes/host/Factories.h"

namespace lumotypes::host {

using RuntimeMetrics = orlo::dabo::krin::KrinMetrics;

/// A snapshot of the runtime's counters, taken on any thread.
LUMOTYPES_HOST_EXPORT RuntimeMetrics metricsOf(const Runtime& runtime);

/// "http://HOST:PORT/metrics" of the page the runtime serves the counters
/// on (krin.runtime.metricsAddress), "" when it serves none.
LUMOTYPES_HOST_EXPORT std::string metricsPageOf(const Runtime& runtime);

}  // namespace lumotypes::host
