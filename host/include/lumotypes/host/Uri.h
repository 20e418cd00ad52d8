#pragma once

#include <string>

#include "lumotypes/host/Export.h"

namespace lumotypes::host {

/// A topic URI "krin.ps://HOST:PORT/TOPIC", taken apart.
struct TopicAddress {
    std::string host;      // as written; "*" (all interfaces) on the binding side only
    unsigned int port = 0;
    std::string topic;     // the URI's path, leading '/' included: the topic name
    std::string endpoint;  // "tcp://HOST:PORT"
};

/// Checks `uri` exactly as the runtime and the factories will and takes it
/// apart; throws the platform's DaboException "Invalid Krin URI 'URI': REASON".
/// `bindSide`: the caller publishes, so HOST may be "*". `requireTopic`: the
/// path must name a topic.
LUMOTYPES_HOST_EXPORT TopicAddress parseTopicUri(const std::string& uri, bool bindSide, bool requireTopic);

}  // namespace lumotypes::host
