#include "tools/common/RuntimeMetricsReport.h"

#include "dabo/krin/detail/KrinDabo.h"
#include "lumotypes/host/Properties.h"

namespace lumo::tools {

std::string metricsPageOf(const orlo::dabo::krin::detail::KrinDabo& runtime) {
    const auto& properties = runtime.getProperties();
    const auto address = properties.find(lumotypes::host::properties::metricsAddress);
    if (runtime.metricsPort() == 0 || address == properties.end()) {
        return "";
    }
    // The host as given, the port as bound (port 0 asks for any).
    const std::string host = address->second.substr(0, address->second.rfind(':'));
    return "http://" + host + ":" + std::to_string(runtime.metricsPort()) + "/metrics";
}

void printRuntimeMetrics(std::ostream& out, const std::string& tool,
                         const orlo::dabo::krin::detail::KrinMetrics& metrics) {
    for (const auto& endpoint : metrics.endpoints) {
        out << tool << ": endpoint " << endpoint.endpoint << ": " << endpoint.messagesForwarded << " forwarded, "
            << endpoint.messagesDropped << " dropped (queue full), " << endpoint.messagesRefusedForSize
            << " refused for size, " << endpoint.authenticationRefusals << " authentication refusals, "
            << endpoint.peersConnected << " subscribers connected\n";
    }
    for (const auto& subscription : metrics.subscriptions) {
        out << tool << ": subscription " << subscription.subscription << ": " << subscription.messagesDelivered
            << " delivered, " << subscription.messagesFailed << " failed to process, "
            << subscription.authenticationRefusals << " authentication failures, " << subscription.peersConnected
            << " publishers connected\n";
    }
    out.flush();
}

}  // namespace lumo::tools
