#pragma once

#include <string>

#include "dabo/Dabo.h"

namespace zmq {
class socket_t;
}

namespace orlo::dabo::krin::detail {

/// A topic URI of the publish/subscribe profile, taken apart:
/// "krin.ps://HOST:PORT/TOPIC".
struct KrinTopicAddress {
    /// The host as written: a name, an IPv4 address, a bracketed IPv6 address,
    /// or "*" (all interfaces, bind side only).
    std::string host;
    unsigned int port = 0;
    /// The URI's path, leading '/' included: this is the topic name.
    std::string topic;

    /// "tcp://HOST:PORT", the ZeroMQ endpoint of the topic.
    std::string tcpEndpoint() const;
};

/// Checks a topic URI and takes it apart. The rules, each refusal being a
/// DaboException "Invalid Krin URI '<uri>': <reason>" (also logged at ERROR on
/// the runtime's logger):
/// - it parses as a URI ("not a valid URI") with scheme krin.ps
///   ("scheme is not krin.ps");
/// - it has a host ("missing host") and a port ("missing port") within
///   1..65535 ("port <p> is out of range 1..65535");
/// - `bindSide` true: the caller binds the endpoint (the publishing side), so
///   the host may be "*" for all interfaces. `bindSide` false: the caller
///   connects, and "*" names no peer ("host * can only be bound, not connected to");
/// - `requireTopic` true: the path must name a topic, so "" and "/" are
///   refused ("empty topic path"). `requireTopic` false: any path, also none.
KrinTopicAddress parseKrinUri(const std::string& uri, bool bindSide, bool requireTopic);

/// parseKrinUri without the result: throws if the URI is unusable.
void checkKrinUri(const std::string& uri, bool bindSide, bool requireTopic);

/// First frame of every message of a topic: the 32-bit topic hash as 4 bytes,
/// most significant first. All frames have the same length, so no topic's
/// frame is a prefix of another's and ZeroMQ prefix filtering is exact.
std::string createFrame0(unsigned int topicIdHash);

/// The routing identity of a socket (the one a DEALER from createDealer has).
std::string getSocketIdentity(zmq::socket_t& socket);

/// A printable id of a subscriber of a topic: "sub-" + the topic frame in hex.
std::string getSubscriberId(const std::string& topicIdFrame);

/// Reads the next frame of the current message without blocking. Throws a
/// DaboException "No frame to read" if there is none.
std::string readFrame(zmq::socket_t& socket);

/// Throws a DaboException "Message has no more frames" if the frame read last
/// was the last of its message.
void requireMoreFrames(zmq::socket_t& socket);

/// Reads and drops what is left of the current message; nothing if the last
/// frame read ended its message.
void discardFrames(zmq::socket_t& socket);

/// The property `key` as a boolean: "true" or "false" in any letter case;
/// `defaultValue` when absent. Any other value is a DaboException
/// "Property <key> has value '<value>', which is not a boolean (true or false)".
bool getDaboBoolProperty(const orlo::dabo::Dabo::Properties& properties, const std::string& key, bool defaultValue);

}  // namespace orlo::dabo::krin::detail
