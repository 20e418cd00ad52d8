#include "tools/common/TopicUri.h"

#include "lumotypes/host/Uri.h"

namespace lumo::tools {

std::string topicUri(const std::string& uri, const std::string& topic, bool bindSide) {
    const auto address = lumotypes::host::parseTopicUri(uri, bindSide, false);
    if (!address.topic.empty() && address.topic != "/") {
        return uri;
    }
    std::string withPath = uri;
    if (!withPath.empty() && withPath.back() == '/') {
        withPath.pop_back();
    }
    withPath += "/" + topic;
    lumotypes::host::parseTopicUri(withPath, bindSide, true);
    return withPath;
}

}  // namespace lumo::tools
