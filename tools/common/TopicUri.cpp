#include "tools/common/TopicUri.h"

#include "dabo/krin/detail/KrinHelpers.h"

namespace lumo::tools {

std::string topicUri(const std::string& uri, const std::string& topic, bool bindSide) {
    const auto address = orlo::dabo::krin::detail::parseKrinUri(uri, bindSide, false);
    if (!address.topic.empty() && address.topic != "/") {
        return uri;
    }
    std::string withPath = uri;
    if (!withPath.empty() && withPath.back() == '/') {
        withPath.pop_back();
    }
    withPath += "/" + topic;
    orlo::dabo::krin::detail::checkKrinUri(withPath, bindSide, true);
    return withPath;
}

}  // namespace lumo::tools
