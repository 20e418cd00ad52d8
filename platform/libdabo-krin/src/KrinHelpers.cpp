#include "dabo/krin/detail/KrinHelpers.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <cctype>
#include <zmq.hpp>

#include "RuntimeLogger.h"
#include "dabo/DaboException.h"
#include "dabo/util/DaboUtil.h"
#include "network/uri.hpp"

namespace orlo::dabo::krin::detail {

namespace {

constexpr unsigned long maxPort = 65535;

[[noreturn]] void refuseUri(const std::string& uri, const std::string& reason) {
    const std::string text = "Invalid Krin URI '" + uri + "': " + reason;
    LOG4CPLUS_ERROR(runtimeLogger(), text);
    throw DaboException(text);
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

}  // namespace

std::string KrinTopicAddress::tcpEndpoint() const {
    return "tcp://" + host + ":" + std::to_string(port);
}

KrinTopicAddress parseKrinUri(const std::string& uri, bool bindSide, bool requireTopic) {
    std::error_code parseError;
    const network::uri parsed(uri, parseError);
    if (parseError) {
        refuseUri(uri, "not a valid URI");
    }
    if (lowerCase(std::string(parsed.scheme())) != "krin.ps") {
        refuseUri(uri, "scheme is not krin.ps");
    }
    KrinTopicAddress address;
    address.host = std::string(parsed.host());
    if (address.host.empty()) {
        refuseUri(uri, "missing host");
    }
    const std::string portText(parsed.port());
    if (portText.empty()) {
        refuseUri(uri, "missing port");
    }
    // The parser admits only digits in a port; the length guard keeps the
    // conversion below from overflowing.
    const unsigned long port = portText.size() > 5 ? maxPort + 1 : std::stoul(portText);
    if (port < 1 || port > maxPort) {
        refuseUri(uri, "port " + portText + " is out of range 1..65535");
    }
    address.port = static_cast<unsigned int>(port);
    if (!bindSide && address.host == "*") {
        refuseUri(uri, "host * can only be bound, not connected to");
    }
    address.topic = std::string(parsed.path());
    if (requireTopic && (address.topic.empty() || address.topic == "/")) {
        refuseUri(uri, "empty topic path");
    }
    return address;
}

void checkKrinUri(const std::string& uri, bool bindSide, bool requireTopic) {
    parseKrinUri(uri, bindSide, requireTopic);
}

std::string createFrame0(unsigned int topicIdHash) {
    const std::uint32_t hash = static_cast<std::uint32_t>(topicIdHash);
    std::string frame(4, '\0');
    frame[0] = static_cast<char>((hash >> 24) & 0xff);
    frame[1] = static_cast<char>((hash >> 16) & 0xff);
    frame[2] = static_cast<char>((hash >> 8) & 0xff);
    frame[3] = static_cast<char>(hash & 0xff);
    return frame;
}

std::string getSocketIdentity(zmq::socket_t& socket) {
    return socket.get(zmq::sockopt::routing_id);
}

std::string getSubscriberId(const std::string& topicIdFrame) {
    return "sub-" + orlo::dabo::util::hexStr(topicIdFrame);
}

std::string readFrame(zmq::socket_t& socket) {
    zmq::message_t frame;
    if (!socket.recv(frame, zmq::recv_flags::dontwait)) {
        throw DaboException("No frame to read");
    }
    return frame.to_string();
}

void requireMoreFrames(zmq::socket_t& socket) {
    if (!socket.get(zmq::sockopt::rcvmore)) {
        throw DaboException("Message has no more frames");
    }
}

void discardFrames(zmq::socket_t& socket) {
    while (socket.get(zmq::sockopt::rcvmore)) {
        zmq::message_t frame;
        if (!socket.recv(frame, zmq::recv_flags::dontwait)) {
            return;
        }
    }
}

bool getDaboBoolProperty(const orlo::dabo::Dabo::Properties& properties, const std::string& key, bool defaultValue) {
    const auto found = properties.find(key);
    if (found == properties.end()) {
        return defaultValue;
    }
    const std::string value = lowerCase(found->second);
    if (value == "true") {
        return true;
    }
    if (value == "false") {
        return false;
    }
    throw DaboException("Property " + key + " has value '" + found->second + "', which is not a boolean (true or false)");
}

}  // namespace orlo::dabo::krin::detail
