#include "tools/common/FreePort.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <random>
#include <stdexcept>

namespace lumo::tools {

namespace {

bool canBind(int port) {
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe < 0) {
        return false;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    // A port that a closed connection left in TIME_WAIT is free to listen on.
    const int reuse = 1;
    ::setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    const bool free = ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    ::close(probe);
    return free;
}

}  // namespace

int freeLoopbackPort() {
    static thread_local std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> ports(20000, 32000);
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const int port = ports(random);
        if (canBind(port)) {
            return port;
        }
    }
    throw std::runtime_error("no free TCP port on 127.0.0.1 between 20000 and 32000");
}

}  // namespace lumo::tools
