#include "BindFailure.h"

#include <cerrno>

namespace orlo::dabo::krin::detail {

namespace {

/// HOST of "tcp://HOST:PORT".
std::string hostOf(const std::string& endpoint) {
    const std::string::size_type start = endpoint.find("://");
    const std::string::size_type begin = start == std::string::npos ? 0 : start + 3;
    const std::string::size_type colon = endpoint.rfind(':');
    return colon == std::string::npos || colon < begin ? endpoint.substr(begin) : endpoint.substr(begin, colon - begin);
}

std::string meaningOf(const std::string& endpoint, int error) {
    switch (error) {
        case EADDRINUSE:
            return "another program, or another runtime, holds that port";
        case EACCES:
            return "no permission to bind that port (ports below 1024 need privileges)";
        case ENODEV:
            return "'" + hostOf(endpoint) +
                   "' is neither an IP address nor a network interface of this machine; a publisher binds, so "
                   "give one of its addresses, an interface name, or * for all";
        case EADDRNOTAVAIL:
            return "'" + hostOf(endpoint) + "' is not an address of this machine";
        default:
            return "";
    }
}

}  // namespace

std::string describeBindFailure(const std::string& endpoint, const zmq::error_t& error) {
    std::string text = "Failed to bind endpoint " + endpoint + ": " + error.what();
    const std::string meaning = meaningOf(endpoint, error.num());
    if (!meaning.empty()) {
        text += " (" + meaning + ")";
    }
    return text;
}

}  // namespace orlo::dabo::krin::detail
