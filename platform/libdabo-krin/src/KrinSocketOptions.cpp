#include "KrinSocketOptions.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <cstdint>

#include "RuntimeLogger.h"
#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"

namespace orlo::dabo::krin::detail {

constexpr long KrinSocketOptions::defaultMaxMessageSize;
constexpr long KrinSocketOptions::longestSubscriptionMessage;
constexpr long KrinSocketOptions::defaultMaxPeersPerEndpoint;

namespace {

const char* const maxMessageSizeProperty = "krin.runtime.maxMessageSize";
const char* const maxPeersPerEndpointProperty = "krin.runtime.maxPeersPerEndpoint";
const char* const serverSecretKeyProperty = "krin.runtime.curve.serverSecretKey";
const char* const serverPublicKeyProperty = "krin.runtime.curve.serverPublicKey";
const char* const publicKeyProperty = "krin.runtime.curve.publicKey";
const char* const secretKeyProperty = "krin.runtime.curve.secretKey";
const char* const authorizedKeysProperty = "krin.runtime.curve.authorizedKeys";
const char* const inProcessProperty = "krin.runtime.inProcess";

constexpr std::size_t z85KeyLength = 40;

[[noreturn]] void refuse(const std::string& text) {
    LOG4CPLUS_ERROR(runtimeLogger(), text);
    throw DaboException(text);
}

bool isZ85Key(const std::string& text) {
    std::uint8_t decoded[32];
    return text.size() == z85KeyLength && zmq_z85_decode(decoded, text.c_str()) != nullptr;
}

/// The key of `property`, or "" when absent. The text of a refusal never
/// repeats the value: it may be a secret.
std::string keyProperty(const orlo::dabo::Dabo::Properties& properties, const char* property) {
    const auto found = properties.find(property);
    if (found == properties.end()) {
        return {};
    }
    if (!isZ85Key(found->second)) {
        refuse(std::string("Property ") + property + " is not a CURVE key: expected 40 characters of Z85 text");
    }
    return found->second;
}

/// The keys listed in `property`, separated by commas and/or white space, or
/// none when it is absent. A refusal names the entry by its place only: a
/// secret key pasted by mistake must not reach the log.
std::set<std::string> keyListProperty(const orlo::dabo::Dabo::Properties& properties, const char* property) {
    const auto found = properties.find(property);
    if (found == properties.end()) {
        return {};
    }
    std::set<std::string> keys;
    const std::string& text = found->second;
    const char* const separators = ", \t\r\n\f\v";
    int entry = 0;
    std::size_t start = text.find_first_not_of(separators);
    while (start != std::string::npos) {
        const std::size_t end = std::min(text.find_first_of(separators, start), text.size());
        const std::string key = text.substr(start, end - start);
        ++entry;
        if (!isZ85Key(key)) {
            refuse(std::string("Property ") + property + " is not a list of CURVE keys: entry " +
                   std::to_string(entry) + " is not 40 characters of Z85 text");
        }
        keys.insert(key);
        start = text.find_first_not_of(separators, end);
    }
    if (keys.empty()) {
        refuse(std::string("Property ") + property + " lists no CURVE key");
    }
    return keys;
}

/// The public key of the CURVE secret key `secretKey` (Z85 text).
std::string publicKeyOf(const std::string& secretKey) {
    char publicText[z85KeyLength + 1];
    if (zmq_curve_public(publicText, secretKey.c_str()) != 0) {
        return {};
    }
    return publicText;
}

void requireCurve() {
    if (!zmq_has("curve")) {
        refuse("CURVE keys are given, but this ZeroMQ library has no CURVE security");
    }
}

}  // namespace

KrinSocketOptions::KrinSocketOptions(const orlo::dabo::Dabo::Properties& properties) {
    maxMessageSize = orlo::dabo::util::getLongProperty(properties, maxMessageSizeProperty, defaultMaxMessageSize);
    if (maxMessageSize < -1 || maxMessageSize == 0) {
        refuse(std::string("Property ") + maxMessageSizeProperty + " has value '" + std::to_string(maxMessageSize) +
               "', which is not a message size (bytes above 0, or -1 for no limit)");
    }
    maxPeersPerEndpoint =
        orlo::dabo::util::getLongProperty(properties, maxPeersPerEndpointProperty, defaultMaxPeersPerEndpoint);
    if (maxPeersPerEndpoint < -1 || maxPeersPerEndpoint == 0) {
        refuse(std::string("Property ") + maxPeersPerEndpointProperty + " has value '" +
               std::to_string(maxPeersPerEndpoint) + "', which is not a number of connections (above 0, or -1 for "
               "no limit)");
    }
    serverSecretKey = keyProperty(properties, serverSecretKeyProperty);
    serverPublicKey = keyProperty(properties, serverPublicKeyProperty);
    clientPublicKey = keyProperty(properties, publicKeyProperty);
    clientSecretKey = keyProperty(properties, secretKeyProperty);
    if (clientPublicKey.empty() != clientSecretKey.empty()) {
        refuse(std::string("Properties ") + publicKeyProperty + " and " + secretKeyProperty +
               " must be given together");
    }
    if (!clientPublicKey.empty() && serverPublicKey.empty()) {
        refuse(std::string("Property ") + publicKeyProperty + " needs " + serverPublicKeyProperty +
               ", the key of the publishers' runtime");
    }
    authorizedKeys = keyListProperty(properties, authorizedKeysProperty);
    if (!authorizedKeys.empty() && serverSecretKey.empty()) {
        refuse(std::string("Property ") + authorizedKeysProperty + " requires " + serverSecretKeyProperty);
    }
    if (!serverSecretKey.empty() || !serverPublicKey.empty()) {
        requireCurve();
    }
    if (!serverPublicKey.empty() && clientPublicKey.empty()) {
        // A subscriber that is only to check the publisher's key needs a key pair all the same.
        char publicText[z85KeyLength + 1];
        char secretText[z85KeyLength + 1];
        if (zmq_curve_keypair(publicText, secretText) != 0) {
            refuse("No CURVE key pair could be made for the subscribing sockets");
        }
        clientPublicKey = publicText;
        clientSecretKey = secretText;
    }
    inProcess = getDaboBoolProperty(properties, inProcessProperty, true) && admitsItsOwnSubscribers();
}

bool KrinSocketOptions::admitsItsOwnSubscribers() const {
    if (curveServer() != curveClient()) {
        // One side expects CURVE, the other does not: no handshake succeeds.
        return false;
    }
    if (!curveServer()) {
        return true;
    }
    return publicKeyOf(serverSecretKey) == serverPublicKey &&
           (authorizedKeys.empty() || authorizedKeys.count(clientPublicKey) != 0);
}

long KrinSocketOptions::subscriptionSizeLimit() const {
    return maxMessageSize > 0 ? std::min(maxMessageSize, longestSubscriptionMessage) : longestSubscriptionMessage;
}

void KrinSocketOptions::applyToPublishing(zmq::socket_t& xpub) const {
    // Whatever the limit for samples, an XPUB only ever receives
    // subscriptions, which are short: a longer message cuts its peer off
    // before it is stored.
    xpub.set(zmq::sockopt::maxmsgsize, static_cast<int64_t>(subscriptionSizeLimit()));
    if (curveServer()) {
        xpub.set(zmq::sockopt::curve_server, 1);
        xpub.set(zmq::sockopt::curve_secretkey, serverSecretKey);
    }
}

void KrinSocketOptions::applyToSubscribing(zmq::socket_t& sub) const {
    if (maxMessageSize > 0) {
        sub.set(zmq::sockopt::maxmsgsize, static_cast<int64_t>(maxMessageSize));
    }
    if (curveClient()) {
        sub.set(zmq::sockopt::curve_serverkey, serverPublicKey);
        sub.set(zmq::sockopt::curve_publickey, clientPublicKey);
        sub.set(zmq::sockopt::curve_secretkey, clientSecretKey);
    }
}

}  // namespace orlo::dabo::krin::detail
