#pragma once

// Plain TCP connections to a publishing endpoint that never say a word: the
// idle connections of a flood. The endpoint's ZeroMQ greets each one it
// keeps and closes the others; which is which is read off each socket.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace lumo::security {

class RawConnections {
public:
    /// Opens `count` connections to 127.0.0.1:`port`; fewer if connecting
    /// fails (see `opened`).
    RawConnections(int port, int count) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        for (int n = 0; n < count; ++n) {
            const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (descriptor < 0) {
                return;
            }
            // A listening queue that is never emptied would hold connect()
            // for minutes.
            const timeval connectLimit{2, 0};
            ::setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &connectLimit, sizeof connectLimit);
            if (::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
                ::close(descriptor);
                return;
            }
            connections.push_back({descriptor, false});
        }
    }
    ~RawConnections() { closeAll(); }
    RawConnections(const RawConnections&) = delete;
    RawConnections& operator=(const RawConnections&) = delete;

    int opened() const { return static_cast<int>(connections.size()); }

    /// Reads what the endpoint sends until `count` connections have been
    /// closed by it, or `limit` has passed; the number closed by then.
    int awaitClosedByPeer(int count, std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        int closed = closedByPeer();
        while (closed < count && std::chrono::steady_clock::now() < deadline) {
            std::vector<pollfd> open;
            for (const Connection& connection : connections) {
                if (!connection.closedByPeer) {
                    open.push_back({connection.descriptor, POLLIN, 0});
                }
            }
            if (::poll(open.data(), open.size(), 100) <= 0) {
                continue;
            }
            for (const pollfd& ready : open) {
                if ((ready.revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
                    readFrom(ready.fd);
                }
            }
            closed = closedByPeer();
        }
        return closed;
    }

    /// Connections the endpoint closed, as far as read so far.
    int closedByPeer() const {
        int closed = 0;
        for (const Connection& connection : connections) {
            closed += connection.closedByPeer ? 1 : 0;
        }
        return closed;
    }

    void closeAll() {
        for (const Connection& connection : connections) {
            ::close(connection.descriptor);
        }
        connections.clear();
    }

private:
    struct Connection {
        int descriptor;
        bool closedByPeer;
    };

    void readFrom(int descriptor) {
        char buffer[256];
        const ssize_t got = ::recv(descriptor, buffer, sizeof buffer, MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
            for (Connection& connection : connections) {
                connection.closedByPeer = connection.closedByPeer || connection.descriptor == descriptor;
            }
        }
    }

    std::vector<Connection> connections;
};

}  // namespace lumo::security
