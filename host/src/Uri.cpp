#include "lumotypes/host/Uri.h"

#include "dabo/krin/detail/KrinHelpers.h"

namespace lumotypes::host {

TopicAddress parseTopicUri(const std::string& uri, bool bindSide, bool requireTopic) {
    const auto parsed = orlo::dabo::krin::detail::parseKrinUri(uri, bindSide, requireTopic);
    return TopicAddress{parsed.host, parsed.port, parsed.topic, parsed.tcpEndpoint()};
}

}  // namespace lumotypes::host
