#include "ConnectionMonitor.h"

#include <netdb.h>
#include <sys/socket.h>

#include <log4cplus/loggingmacros.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <utility>

#include "RuntimeLogger.h"

namespace orlo::dabo::krin::detail {

namespace {

constexpr int failedHandshakeEvents =
    ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL | ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH;
constexpr int watchedEvents = ZMQ_EVENT_ACCEPTED | ZMQ_EVENT_DISCONNECTED | failedHandshakeEvents;

/// "IP:PORT" of the peer of a connection's descriptor, or "an unknown address".
std::string peerAddressOf(int descriptor) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return "an unknown address";
    }
    char host[NI_MAXHOST];
    char port[NI_MAXSERV];
    if (getnameinfo(reinterpret_cast<sockaddr*>(&address), length, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return "an unknown address";
    }
    return address.ss_family == AF_INET6 ? std::string("[") + host + "]:" + port : std::string(host) + ":" + port;
}

// Bounds the work of one turn of the runtime's loop, as for its other sockets.
constexpr int maxEventsPerTurn = 256;

/// Unique in the process, so in every context.
std::string newMonitorEndpoint() {
    static std::atomic<unsigned long> count{0};
    return "inproc://krin-connection-monitor-" + std::to_string(++count);
}

}  // namespace

ConnectionMonitor::ConnectionMonitor(zmq::context_t& context, zmq::socket_t& watchedSocket, Side watchedSide,
                                     std::string watchedEndpoint, long limit)
    : watched(watchedSocket),
      side(watchedSide),
      endpoint(std::move(watchedEndpoint)),
      maxMessageSize(limit),
      logger(runtimeLogger()),
      monitor(context, zmq::socket_type::pair) {
    const std::string address = newMonitorEndpoint();
    if (zmq_socket_monitor(watched.handle(), address.c_str(), watchedEvents) != 0) {
        throw zmq::error_t();
    }
    monitor.set(zmq::sockopt::linger, 0);
    monitor.connect(address);
}

ConnectionMonitor::~ConnectionMonitor() {
    zmq_socket_monitor(watched.handle(), nullptr, 0);
    monitor.close();
}

void ConnectionMonitor::serve() {
    for (int n = 0; n < maxEventsPerTurn; ++n) {
        // An event is two frames: event number and value, then the address.
        zmq::message_t event;
        if (!monitor.recv(event, zmq::recv_flags::dontwait)) {
            return;
        }
        for (bool more = event.more(); more;) {
            // The parts of an event arrive together, so none is waited for.
            zmq::message_t rest;
            more = monitor.recv(rest, zmq::recv_flags::dontwait) && rest.more();
        }
        if (event.size() < sizeof(std::uint16_t)) {
            continue;
        }
        std::uint16_t number = 0;
        std::uint32_t value = 0;
        std::memcpy(&number, event.data(), sizeof number);
        if (event.size() >= sizeof number + sizeof value) {
            std::memcpy(&value, event.data<char>() + sizeof number, sizeof value);
        }
        const int descriptor = static_cast<int>(value);
        if (number == ZMQ_EVENT_ACCEPTED) {
            // Asked now, while the descriptor is still this connection's.
            peers[descriptor] = peerAddressOf(descriptor);
        } else if (number == ZMQ_EVENT_DISCONNECTED) {
            const auto peer = peers.find(descriptor);
            const std::string address = peer != peers.end() ? peer->second : "an unknown address";
            if (peer != peers.end()) {
                peers.erase(peer);
            }
            if (failedHandshakes > 0) {
                --failedHandshakes;
            } else {
                dropped(address);
            }
        } else if ((number & failedHandshakeEvents) != 0) {
            ++failedHandshakes;
        }
    }
}

void ConnectionMonitor::dropped(const std::string& peerAddress) {
    if (side == Side::Publishing) {
        // Subscribers come and go; a line per peer and interval at most.
        if (logLimiter.admit(peerAddress, std::chrono::steady_clock::now())) {
            LOG4CPLUS_WARN(logger, "Connection of a subscriber from " << peerAddress << " at " << endpoint
                                                                      << " dropped: a subscription above "
                                                                      << maxMessageSize
                                                                      << " bytes, or the peer went away");
        }
        return;
    }
    LOG4CPLUS_ERROR(logger, "Connection to " << endpoint << " dropped: a message above krin.runtime.maxMessageSize="
                                             << maxMessageSize << " bytes, or the peer went away");
    // A fresh connection in place of the one ZeroMQ gave up. Its subscription
    // is sent again on connecting.
    try {
        watched.disconnect(endpoint);
    } catch (const zmq::error_t&) {
        // Nothing left to disconnect: only the new connection matters.
    }
    try {
        watched.connect(endpoint);
    } catch (const zmq::error_t& e) {
        LOG4CPLUS_ERROR(logger, "Failed to connect subscriber to " << endpoint << " again: " << e.what());
    }
}

}  // namespace orlo::dabo::krin::detail
