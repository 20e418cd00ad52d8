#include "tools/common/RuntimeMetricsReport.h"


namespace lumo::tools {

void printRuntimeMetrics(std::ostream& out, const std::string& tool, const lumotypes::host::RuntimeMetrics& metrics) {
    for (const auto& endpoint : metrics.endpoints) {
        out << tool << ": endpoint " << endpoint.endpoint << ": " << endpoint.messagesForwarded << " forwarded, "
            << endpoint.messagesDropped << " dropped (queue full), " << endpoint.messagesRefusedForSize
            << " refused for size, " << endpoint.authenticationRefusals << " authentication refusals, "
            << endpoint.peersConnected << " subscribers connected, " << endpoint.inProcessSubscribers
            << " in process\n";
    }
    for (const auto& subscription : metrics.subscriptions) {
        out << tool << ": subscription " << subscription.subscription << ": " << subscription.messagesDelivered
            << " delivered, " << subscription.messagesFailed << " failed to process, "
            << subscription.messagesRefusedForSize << " refused for size, "
            << subscription.authenticationRefusals << " authentication failures, " << subscription.peersConnected
            << " publishers connected, " << subscription.inProcessConnections << " in process\n";
    }
    out.flush();
}

}  // namespace lumo::tools
