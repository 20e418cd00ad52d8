#include "ConnectionMonitor.h"

#include <netdb.h>
#include <sstream>
#include <sys/socket.h>

#include <log4cplus/loggingmacros.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

#include "HostSignals.h"
#include "RuntimeLogger.h"

namespace orlo::dabo::krin::detail {

namespace {

constexpr int failedHandshakeEvents =
    ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL | ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH;
constexpr int watchedEvents = ZMQ_EVENT_ACCEPTED | ZMQ_EVENT_CONNECTED | ZMQ_EVENT_HANDSHAKE_SUCCEEDED |
                              ZMQ_EVENT_DISCONNECTED | ZMQ_EVENT_CONNECT_RETRIED | failedHandshakeEvents;
/// Only a bound socket accepts.
constexpr int watchedPublishingEvents = watchedEvents | ZMQ_EVENT_ACCEPT_FAILED;

/// How long a dropped subscribing connection waits for ZeroMQ to announce
/// that it reconnects by itself (it does so within the same turn of its I/O
/// thread when the peer merely went away) before the runtime connects anew,
/// as it must after a message above the limit, which ZeroMQ does not retry.
constexpr auto reconnectGrace = std::chrono::milliseconds(500);

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

/// The host of an "IP:PORT" or "[IPv6]:PORT" address: a flood comes from one
/// host through many ports.
std::string hostOf(const std::string& peerAddress) {
    const auto colon = peerAddress.rfind(':');
    return colon == std::string::npos || peerAddress.find(']', colon) != std::string::npos
               ? peerAddress
               : peerAddress.substr(0, colon);
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
    const int events = side == Side::Publishing ? watchedPublishingEvents : watchedEvents;
    if (zmq_socket_monitor(watched.handle(), address.c_str(), events) != 0) {
        throw zmq::error_t();
    }
    monitor.set(zmq::sockopt::linger, 0);
    monitor.connect(address);
}

ConnectionMonitor::~ConnectionMonitor() {
    countConnections(ZMQ_EVENT_MONITOR_STOPPED);
    if (side == Side::Publishing) {
        stopWatching();
    } else {
        zmq_socket_monitor(watched.handle(), nullptr, 0);
    }
    monitor.close();
}

void ConnectionMonitor::stopWatching() {
    // ZeroMQ writes each event under the lock that stopping the monitor
    // takes, and waits for room when the monitor's queue is full. A failing
    // accept is retried, and reported, in a tight loop: the queue is drained
    // meanwhile, or both threads would wait for each other for ever.
    std::atomic<bool> stopped{false};
    std::thread drain;
    try {
        const HostSignalsHeldBack signalsHeldBack;
        drain = std::thread([this, &stopped] {
            while (!stopped) {
                zmq::pollitem_t item{monitor.handle(), 0, ZMQ_POLLIN, 0};
                if (zmq::poll(&item, 1, std::chrono::milliseconds(10)) > 0) {
                    zmq::message_t event;
                    (void)monitor.recv(event, zmq::recv_flags::dontwait);
                }
            }
        });
    } catch (const std::system_error&) {
        // No thread to spare: stopped without, as on the subscribing side.
    }
    zmq_socket_monitor(watched.handle(), nullptr, 0);
    stopped = true;
    if (drain.joinable()) {
        drain.join();
    }
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
            const std::string address = peerAddressOf(descriptor);
            peers[descriptor] = address;
            if (peerLimit) {
                peerLimit->accepted(descriptor, address);
            }
        } else if (number == ZMQ_EVENT_ACCEPT_FAILED) {
            if (peerLimit) {
                peerLimit->acceptFailed(static_cast<int>(value));
            }
        } else if (number == ZMQ_EVENT_CONNECTED) {
            handshakeCompleted = false;
        } else if (number == ZMQ_EVENT_HANDSHAKE_SUCCEEDED) {
            handshakeCompleted = true;
        } else if (number == ZMQ_EVENT_CONNECT_RETRIED) {
            // ZeroMQ keeps the connection's queue and makes it again itself.
            reconnectDue.reset();
        } else if (number == ZMQ_EVENT_DISCONNECTED) {
            const auto peer = peers.find(descriptor);
            const std::string address = peer != peers.end() ? peer->second : "an unknown address";
            if (peer != peers.end()) {
                peers.erase(peer);
            }
            if (peerLimit && peerLimit->ended(descriptor)) {
                // Cut for the peer limit, and said so then. A connection cut
                // during its handshake has had that reported just before.
                if (!failedHandshakes.empty()) {
                    failedHandshakes.pop_front();
                }
                continue;
            }
            disconnected(address);
        } else if ((number & failedHandshakeEvents) != 0) {
            handshakeFailed(number, value);
        }
        countConnections(number);
    }
}

void ConnectionMonitor::countConnections(std::uint16_t event) {
    if (connectionCounters == nullptr) {
        return;
    }
    if (side == Side::Publishing) {
        connectionCounters->peersConnected.set(
            event == ZMQ_EVENT_MONITOR_STOPPED ? 0 : static_cast<std::int64_t>(peers.size()));
        return;
    }
    // Subscribers of one URI share their counters, so a SUB adds and takes
    // away its own connection.
    const bool open = event == ZMQ_EVENT_HANDSHAKE_SUCCEEDED ||
                      (countedOpen && event != ZMQ_EVENT_DISCONNECTED && event != ZMQ_EVENT_MONITOR_STOPPED);
    if (open != countedOpen) {
        if (open) {
            connectionCounters->peersConnected.add();
        } else {
            connectionCounters->peersConnected.subtract();
        }
        countedOpen = open;
    }
}

void ConnectionMonitor::disconnected(const std::string& peerAddress) {
    if (!failedHandshakes.empty()) {
        // The end of a connection whose handshake failed: said now, with the
        // peer's address, on the side that refused it.
        const std::string reason = failedHandshakes.front();
        failedHandshakes.pop_front();
        unsigned long heldBack = 0;
        if (side == Side::Publishing && !reason.empty() &&
            logLimiter.admit("handshake " + hostOf(peerAddress) + reason, std::chrono::steady_clock::now(),
                             heldBack)) {
            LOG4CPLUS_WARN(logger, "Handshake of a subscriber from " << peerAddress << " at " << endpoint
                                                                     << " failed: " << reason
                                                                     << LogLimiter::heldBackNote(heldBack));
        }
        return;
    }
    if (side == Side::Subscribing && !handshakeCompleted) {
        // The publisher closed the connection before the handshake was over,
        // which is how a CURVE server answers a client with the wrong key.
        if (logLimiter.admit("unfinished", std::chrono::steady_clock::now())) {
            LOG4CPLUS_WARN(logger, "Handshake with " << endpoint
                                                     << " failed: the publisher closed the connection before it was "
                                                        "complete (is krin.runtime.curve.serverPublicKey the "
                                                        "publishing runtime's public key, and do both sides use CURVE?)");
        }
        return;
    }
    dropped(peerAddress);
}

void ConnectionMonitor::handshakeFailed(std::uint16_t event, std::uint32_t value) {
    if (connectionCounters != nullptr &&
        (event == ZMQ_EVENT_HANDSHAKE_FAILED_AUTH || event == ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL)) {
        connectionCounters->authenticationRefusals.add();
    }
    std::string reason;
    if (event == ZMQ_EVENT_HANDSHAKE_FAILED_AUTH) {
        // The authentication handler has named the refused key already.
        if (side == Side::Subscribing) {
            reason = "the publishing runtime refused this subscriber's CURVE key (status " + std::to_string(value) +
                     "): it is not in that runtime's krin.runtime.curve.authorizedKeys";
        }
    } else if (event == ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL) {
        std::ostringstream code;
        code << std::hex << std::showbase << value;
        reason = "protocol error " + code.str() + ", as with CURVE keys that do not match or CURVE on one side only";
    } else {
        reason = zmq_strerror(static_cast<int>(value));
        if (side == Side::Subscribing) {
            reason += " (is krin.runtime.curve.serverPublicKey the publishing runtime's public key, and do both "
                      "sides use CURVE?)";
        }
    }
    if (side == Side::Subscribing) {
        if (!reason.empty() && logLimiter.admit("handshake " + reason, std::chrono::steady_clock::now())) {
            LOG4CPLUS_WARN(logger, "Handshake with " << endpoint << " failed: " << reason);
        }
        reason.clear();
    }
    failedHandshakes.push_back(reason);
}

void ConnectionMonitor::dropped(const std::string& peerAddress) {
    if (side == Side::Publishing) {
        // Subscribers come and go, one host's through many ports: a line
        // per host and interval at most.
        unsigned long heldBack = 0;
        if (logLimiter.admit(hostOf(peerAddress), std::chrono::steady_clock::now(), heldBack)) {
            LOG4CPLUS_WARN(logger, "Connection of a subscriber from " << peerAddress << " at " << endpoint
                                                                      << " dropped: a subscription above "
                                                                      << maxMessageSize
                                                                      << " bytes, or the peer went away"
                                                                      << LogLimiter::heldBackNote(heldBack));
        }
        return;
    }
    LOG4CPLUS_ERROR(logger, "Connection to " << endpoint << " dropped: a message above krin.runtime.maxMessageSize="
                                             << maxMessageSize << " bytes, or the peer went away");
    // Not made afresh at once: disconnecting a socket whose queue still holds
    // messages of that connection makes ZeroMQ abort when they are read.
    reconnectDue = std::chrono::steady_clock::now() + reconnectGrace;
}

void ConnectionMonitor::serveDue(std::chrono::steady_clock::time_point now) {
    if (!reconnectDue || now < *reconnectDue) {
        return;
    }
    reconnectDue.reset();
    if (connectionCounters != nullptr) {
        connectionCounters->connectionsCut.add();
    }
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
