#include "PeerLimit.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

namespace orlo::dabo::krin::detail {

namespace {

/// The process's limit of descriptors now, or -1 when there is none.
long descriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) {
        return -1;
    }
    return static_cast<long>(limit.rlim_cur);
}

/// The port of a "tcp://HOST:PORT" endpoint, or -1.
int portOf(const std::string& endpoint) {
    const auto colon = endpoint.rfind(':');
    if (endpoint.rfind("tcp://", 0) != 0 || colon == std::string::npos) {
        return -1;
    }
    try {
        return std::stoi(endpoint.substr(colon + 1));
    } catch (const std::exception&) {
        return -1;
    }
}

/// Whether `descriptor` is a connection accepted at `port`. The monitor's
/// events come after the fact: a connection may have ended and its
/// descriptor have been given to another one meanwhile, which must be a
/// connection of the same endpoint to be cut.
bool isConnectionAt(int descriptor, int port) {
    sockaddr_storage local{};
    socklen_t length = sizeof local;
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &length) != 0) {
        return false;
    }
    if (local.ss_family == AF_INET) {
        return ntohs(reinterpret_cast<const sockaddr_in&>(local).sin_port) == port;
    }
    if (local.ss_family == AF_INET6) {
        return ntohs(reinterpret_cast<const sockaddr_in6&>(local).sin6_port) == port;
    }
    return false;
}

}  // namespace

long PeerLimit::reserveFor(long limit) {
    // An eighth, and never fewer than 16: room for the runtime's own
    // connections, its sockets' internal descriptors and the host's files.
    return std::max(16L, limit / 8);
}

PeerLimit::PeerLimit(std::string boundEndpoint, long limit, log4cplus::Logger runtimeLogger)
    : endpoint(std::move(boundEndpoint)), port(portOf(endpoint)), maxPeers(limit), logger(std::move(runtimeLogger)) {
    const long descriptors = descriptorLimit();
    firstReserved = descriptors < 0 ? -1 : std::max(0L, descriptors - reserveFor(descriptors));
    reserveDescriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

PeerLimit::~PeerLimit() {
    if (reserveDescriptor >= 0) {
        ::close(reserveDescriptor);
    }
}

void PeerLimit::retakeReserve() {
    if (reserveDescriptor < 0) {
        reserveDescriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
}

bool PeerLimit::accepted(int descriptor, const std::string& peerAddress) {
    if (reserveDescriptor < 0) {
        // The reserve was given up for this accept, or one before it.
        cut(descriptor, "exhausted",
            "Refused a subscriber from " + peerAddress + " at " + endpoint +
                ": the process's file descriptors are exhausted");
        return false;
    }
    if (maxPeers >= 0 && static_cast<long>(held.size()) >= maxPeers) {
        cut(descriptor, "peers",
            "Refused a subscriber from " + peerAddress + " at " + endpoint + ": it holds " +
                std::to_string(maxPeers) + " connections, the most krin.runtime.maxPeersPerEndpoint allows");
        return false;
    }
    if (firstReserved >= 0 && descriptor >= firstReserved) {
        cut(descriptor, "descriptors",
            "Refused a subscriber from " + peerAddress + " at " + endpoint +
                ": the process's file descriptors are nearly exhausted (descriptor " + std::to_string(descriptor) +
                " of " + std::to_string(descriptorLimit()) + "; the last " +
                std::to_string(reserveFor(descriptorLimit())) + " are kept in reserve)");
        return false;
    }
    held.insert(descriptor);
    return true;
}

bool PeerLimit::ended(int descriptor) {
    held.erase(descriptor);
    const bool wasCut = cutOff.erase(descriptor) != 0;
    // Free again unless ZeroMQ has taken it for the next waiting connection
    // (which is then cut in turn) or has yet to close it.
    retakeReserve();
    return wasCut;
}

void PeerLimit::acceptFailed(int error) {
    std::string text = "Failed to accept a subscriber at " + endpoint + ": " + std::strerror(error);
    if (error == EMFILE || error == ENFILE) {
        text += " (the file descriptors of the " + std::string(error == EMFILE ? "process" : "system") +
                " are exhausted; the endpoint keeps serving its " + std::to_string(held.size()) +
                " connections and cuts new ones until descriptors are free again)";
    }
    warn("accept " + std::to_string(error), text);
    if (error == EMFILE || error == ENFILE) {
        // ZeroMQ retries at once: its next accept takes the reserve.
        if (reserveDescriptor >= 0) {
            ::close(reserveDescriptor);
            reserveDescriptor = -1;
        } else {
            retakeReserve();
        }
    }
}

void PeerLimit::cut(int descriptor, const std::string& key, const std::string& reason) {
    // ZeroMQ, woken by the shutdown, closes the connection and reports its
    // end. Its peer sees the connection end; a ZeroMQ peer tries again after
    // its reconnect interval and is taken once there is room.
    if ((port < 0 || isConnectionAt(descriptor, port)) && ::shutdown(descriptor, SHUT_RDWR) == 0) {
        cutOff.insert(descriptor);
    }
    warn(key, reason);
}

void PeerLimit::warn(const std::string& key, const std::string& text) {
    unsigned long heldBack = 0;
    if (!logLimiter.admit(key, std::chrono::steady_clock::now(), heldBack)) {
        return;
    }
    LOG4CPLUS_WARN(logger, text << LogLimiter::heldBackNote(heldBack));
}

}  // namespace orlo::dabo::krin::detail
