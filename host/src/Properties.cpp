#include "lumotypes/host/Properties.h"

#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"

namespace lumotypes::host::properties {

const std::vector<PropertyInfo>& knownProperties() {
    static const std::vector<PropertyInfo> known = {
        {slowJoinerDelayMs, "publisher factory", "0 (krin-pub: 500)",
         "milliseconds a new publisher sleeps after registering, so subscribers can join before its first sample"},
        {disableTypeHashCheck, "subscriber factories", "`false`",
         "accept payloads whose header names another type (`true`/`false`, any case)"},
        {highWaterMark, "runtime", "1000",
         "messages queued per socket (dealers, ROUTER, XPUBs, SUBs); 0 for no limit"},
        {maxMessageSize, "runtime", "67108864 (64 MiB)",
         "largest message a subscriber's socket accepts from another process, in bytes; -1 for no limit. A "
         "publishing endpoint takes no message above 512 bytes from its subscribers whatever the value"},
        {maxPeersPerEndpoint, "runtime", "1000",
         "most connections one publishing endpoint holds; a connection beyond is cut as soon as it is accepted, and so is one that would leave the process fewer than an eighth (at least 16) of its file descriptors; -1 for no limit but that reserve"},
        {curveServerSecretKey, "runtime", "none",
         "secret key (Z85, 40 characters) of a publishing runtime's endpoints; makes them CURVE servers"},
        {curveServerPublicKey, "runtime", "none",
         "public key of the publishing runtime's endpoints; a subscribing runtime needs it to connect"},
        {curvePublicKey, "runtime", "none",
         "public key of a subscribing runtime; needs `krin.runtime.curve.serverPublicKey`"},
        {curveSecretKey, "runtime", "none",
         "secret key of a subscribing runtime; needs `krin.runtime.curve.serverPublicKey`"},
        {curveAuthorizedKeys, "runtime", "none (any subscriber with the server's public key)",
         "public keys of the subscribers that a publishing runtime admits, separated by commas and/or white space; "
         "needs `krin.runtime.curve.serverSecretKey`"},
        {inProcess, "runtime", "`true`",
         "a subscriber of an endpoint that its own runtime binds connects to it in process (no TCP, no I/O "
         "thread) instead of over TCP; taken only where the endpoints would admit the runtime's own subscribers "
         "(docs/architecture.md)"},
        {cpuAffinity, "runtime", "none (the process's CPUs)",
         "CPUs the runtime's thread may run on, such as `2` or `0,2-3`; CPUs the system does not have fail the "
         "runtime's creation"},
        {threadPriority, "runtime", "none (ordinary scheduling)",
         "real-time priority (SCHED_FIFO, 1 to 99) of the runtime's thread; a system that denies it fails the "
         "runtime's creation"},
        {metricsAddress, "runtime", "none (no metrics page)",
         "HOST:PORT (port 0: any free one) where the runtime serves its counters at `/metrics` for Prometheus; "
         "an address that cannot be bound fails the runtime's creation (docs/metrics.md)"},
    };
    return known;
}

bool booleanValue(const orlo::dabo::Dabo::Properties& given, const std::string& key, bool defaultValue) {
    return orlo::dabo::krin::detail::getDaboBoolProperty(given, key, defaultValue);
}

std::vector<std::string> checkProperties(const orlo::dabo::Dabo::Properties& given) {
    // The same readers, with the same messages, as the runtime and the factories use.
    orlo::dabo::util::getLongProperty(given, highWaterMark, 0);
    orlo::dabo::util::getLongProperty(given, maxMessageSize, 64L * 1024 * 1024);
    orlo::dabo::util::getLongProperty(given, maxPeersPerEndpoint, 1000);
    orlo::dabo::util::getLongProperty(given, slowJoinerDelayMs, 0);
    booleanValue(given, disableTypeHashCheck, false);
    booleanValue(given, inProcess, true);
    std::vector<std::string> unread;
    for (const auto& entry : given) {
        bool known = false;
        for (const PropertyInfo& property : knownProperties()) {
            known = known || property.key == entry.first;
        }
        if (!known) {
            unread.push_back(entry.first);
        }
    }
    return unread;
}

}  // namespace lumotypes::host::properties
