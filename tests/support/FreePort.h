#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <random>
#include <stdexcept>

namespace lumo::test {

/// A TCP port on the loopback interface that nothing listens on right now.
///
/// Ports are drawn below the kernel's ephemeral range (32768 and up): a socket
/// that connects to a port in that range before anything listens there can be
/// handed that very port as its own source and occupy it, and a publisher
/// could then no longer bind it. Drawing at random keeps tests that run in
/// parallel apart.
inline unsigned int freePort() {
    static std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<unsigned int> candidates(20000, 32000);
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const unsigned int port = candidates(random);
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        if (fd < 0) {
            break;
        }
        const int reuse = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        const bool free = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        ::close(fd);
        if (free) {
            return port;
        }
    }
    throw std::runtime_error("no free loopback port");
}

}  // namespace lumo::test
