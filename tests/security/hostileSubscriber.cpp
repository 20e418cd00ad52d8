// A hostile subscriber in a process of its own, written with plain ZeroMQ:
// it connects to a publishing endpoint and sends what it is told to, then
// stays until its standard input closes.
//
//   hostileSubscriber ENDPOINT huge BYTES          one subscription of BYTES bytes
//   hostileSubscriber ENDPOINT many COUNT BYTES    COUNT distinct subscriptions of BYTES bytes each
//   hostileSubscriber ENDPOINT idle COUNT          COUNT connections, one topic-frame subscription each
//
// It prints "ready" once its sockets are connected.

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>
#include <zmq.hpp>

namespace {

/// Distinct filters of `bytes` bytes: the number first, padded.
std::string filterNumber(std::size_t number, std::size_t bytes) {
    std::string filter = std::to_string(number) + "-";
    filter.resize(bytes, 'x');
    return filter;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::cerr << "usage: hostileSubscriber ENDPOINT huge BYTES | many COUNT BYTES | idle COUNT\n";
        return 2;
    }
    const std::string endpoint = argv[1];
    const std::string mode = argv[2];
    const std::size_t first = std::stoul(argv[3]);
    zmq::context_t context(1);
    std::vector<std::unique_ptr<zmq::socket_t>> sockets;
    const auto socketFor = [&]() -> zmq::socket_t& {
        sockets.push_back(std::make_unique<zmq::socket_t>(context, zmq::socket_type::sub));
        sockets.back()->set(zmq::sockopt::linger, 0);
        // Subscriptions beyond the high-water mark would never leave.
        sockets.back()->set(zmq::sockopt::sndhwm, 0);
        return *sockets.back();
    };
    if (mode == "huge") {
        socketFor().set(zmq::sockopt::subscribe, std::string(first, 'h'));
    } else if (mode == "many" && argc >= 5) {
        zmq::socket_t& socket = socketFor();
        for (std::size_t n = 0; n < first; ++n) {
            socket.set(zmq::sockopt::subscribe, filterNumber(n, std::stoul(argv[4])));
        }
    } else if (mode == "idle") {
        for (std::size_t n = 0; n < first; ++n) {
            socketFor().set(zmq::sockopt::subscribe, std::string("idle", 4));
        }
    } else {
        std::cerr << "hostileSubscriber: unknown mode '" << mode << "'\n";
        return 2;
    }
    for (auto& socket : sockets) {
        socket->connect(endpoint);
    }
    std::cout << "ready" << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
    }
    return 0;
}
