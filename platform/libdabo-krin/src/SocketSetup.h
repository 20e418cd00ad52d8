#pragma once

#include <string>
#include <zmq.hpp>

namespace orlo::dabo::krin::detail {

/// An endpoint with a bracketed IPv6 address needs ZeroMQ's IPv6 option
/// before the socket binds or connects.
inline void allowIpv6For(zmq::socket_t& socket, const std::string& endpoint) {
    if (endpoint.find('[') != std::string::npos) {
        socket.set(zmq::sockopt::ipv6, 1);
    }
}

}  // namespace orlo::dabo::krin::detail
