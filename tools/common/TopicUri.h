#pragma once

#include <string>

namespace lumo::tools {

/// The topic URI a tool works with: `uri` as given if it names a topic path,
/// otherwise `uri` with "/TOPIC" as its path, so that
/// "krin.ps://127.0.0.1:7400" and TOPIC "LumoMode" mean
/// "krin.ps://127.0.0.1:7400/LumoMode". Refuses a URI that the runtime would
/// refuse, with the runtime's text; `bindSide` as for the runtime's check.
std::string topicUri(const std::string& uri, const std::string& topic, bool bindSide);

/// `topicUri` for a tool's arguments, each refusal a `UsageError` naming the
/// bad one: a topic the package lacks, a URI the runtime refuses, or a host
/// that does not resolve to an address. The runtime would take such a host
/// and then wait in silence for a peer that can never be reached.
std::string checkedTopicUri(const std::string& uri, const std::string& topic, bool bindSide);

}  // namespace lumo::tools
