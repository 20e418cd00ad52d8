#pragma once

// Every property the runtime and the plug-in read, in one registry: the
// tools, their checks and the property table of the README come from it.

#include <string>
#include <vector>

#include "dabo/Dabo.h"
#include "lumotypes/host/Export.h"

namespace lumotypes::host::properties {

/// Milliseconds a new publisher sleeps after registering, so that subscribers can join before its first sample.
constexpr const char* slowJoinerDelayMs = "krin.ps.slowJoinerDelayMs";
/// Subscribers accept payloads whose header names another type.
constexpr const char* disableTypeHashCheck = "krin.ps.disableTypeHashCheck";
/// Messages queued per socket of the runtime.
constexpr const char* highWaterMark = "krin.runtime.highWaterMark";
/// The largest message a socket accepts from another process, in bytes.
constexpr const char* maxMessageSize = "krin.runtime.maxMessageSize";
/// The most connections one publishing endpoint holds.
constexpr const char* maxPeersPerEndpoint = "krin.runtime.maxPeersPerEndpoint";
/// CURVE key pair of a publishing runtime's endpoints.
constexpr const char* curveServerSecretKey = "krin.runtime.curve.serverSecretKey";
constexpr const char* curveServerPublicKey = "krin.runtime.curve.serverPublicKey";
/// CURVE key pair of a subscribing runtime.
constexpr const char* curvePublicKey = "krin.runtime.curve.publicKey";
constexpr const char* curveSecretKey = "krin.runtime.curve.secretKey";
/// Public keys of the subscribers a publishing runtime admits.
constexpr const char* curveAuthorizedKeys = "krin.runtime.curve.authorizedKeys";
/// Whether a subscriber of an endpoint its own runtime binds connects in process.
constexpr const char* inProcess = "krin.runtime.inProcess";
/// The CPUs the runtime's thread may run on.
constexpr const char* cpuAffinity = "krin.runtime.cpuAffinity";
/// A real-time priority for the runtime's thread.
constexpr const char* threadPriority = "krin.runtime.threadPriority";
/// HOST:PORT of the runtime's metrics page.
constexpr const char* metricsAddress = "krin.runtime.metricsAddress";

/// One property as the README's table documents it.
struct PropertyInfo {
    std::string key;
    std::string readBy;        // "runtime", "publisher factory" or "subscriber factories"
    std::string defaultValue;  // as a reader would write it; "none" if unset means off
    std::string meaning;
};

/// Every property of the runtime and the plug-in, runtime's last.
LUMOTYPES_HOST_EXPORT const std::vector<PropertyInfo>& knownProperties();

/// The boolean property `key` as the plug-in reads it: "true" or "false" in
/// any letter case; throws the platform's DaboException for anything else.
LUMOTYPES_HOST_EXPORT bool booleanValue(const orlo::dabo::Dabo::Properties& properties, const std::string& key,
                                        bool defaultValue);

/// Checks the values of the known properties that have a form (numbers and
/// booleans): throws the platform's DaboException, with the message the
/// runtime or the plug-in itself would give, for the first bad one. Returns
/// the keys that neither reads, in key order, for the caller to warn about.
LUMOTYPES_HOST_EXPORT std::vector<std::string> checkProperties(const orlo::dabo::Dabo::Properties& properties);

}  // namespace lumotypes::host::properties
