#include "lumotypes/host/Metrics.h"

#include "dabo/krin/detail/KrinDabo.h"
#include "lumotypes/host/Properties.h"

namespace lumotypes::host {

RuntimeMetrics metricsOf(const Runtime& runtime) { return runtime->metrics(); }

std::string metricsPageOf(const Runtime& runtime) {
    const auto& given = runtime->getProperties();
    const auto address = given.find(properties::metricsAddress);
    if (runtime->metricsPort() == 0 || address == given.end()) {
        return "";
    }
    // The host as given, the port as bound (port 0 asks for any).
    const std::string host = address->second.substr(0, address->second.rfind(':'));
    return "http://" + host + ":" + std::to_string(runtime->metricsPort()) + "/metrics";
}

}  // namespace lumotypes::host
