#include "tools/common/TopicUri.h"

#include <netdb.h>
#include <sys/socket.h>

#include "dabo/DaboException.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Uri.h"
#include "tools/common/CommandLine.h"

namespace lumo::tools {

namespace {

/// Refuses a host name that resolves to no address; "*" and bracketed IPv6
/// addresses are the runtime's to judge.
void checkHostResolves(const std::string& host, const std::string& uri) {
    if (host.empty() || host == "*" || host.front() == '[') {
        return;
    }
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (error != 0) {
        throw UsageError("host '" + host + "' of URI '" + uri + "' does not resolve: " + ::gai_strerror(error));
    }
    ::freeaddrinfo(found);
}

}  // namespace

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

std::string checkedTopicUri(const std::string& uri, const std::string& topic, bool bindSide) {
    if (!lumotypes::host::withTopic(topic, [](auto) {})) {
        throw UsageError("unknown topic '" + topic + "'; see --help for the topics");
    }
    try {
        const std::string checked = topicUri(uri, topic, bindSide);
        checkHostResolves(lumotypes::host::parseTopicUri(checked, bindSide, true).host, uri);
        return checked;
    } catch (const orlo::dabo::DaboException& refusal) {
        throw UsageError(refusal.what());
    }
}

}  // namespace lumo::tools
