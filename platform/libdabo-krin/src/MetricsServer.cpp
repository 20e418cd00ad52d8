#include "MetricsServer.h"

#include <httplib.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "HostSignals.h"
#include "dabo/DaboException.h"

namespace orlo::dabo::krin::detail {

const char* const metricsAddressProperty = "krin.runtime.metricsAddress";

namespace {

struct HostAndPort {
    std::string host;
    int port;
};

DaboException badAddress(const std::string& address, const std::string& why) {
    return DaboException(std::string("Property ") + metricsAddressProperty + " has value '" + address + "': " + why);
}

HostAndPort parseAddress(const std::string& address) {
    const auto colon = address.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == address.size()) {
        throw badAddress(address, "not HOST:PORT");
    }
    std::string host = address.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    const std::string portText = address.substr(colon + 1);
    char* end = nullptr;
    errno = 0;
    const long port = std::strtol(portText.c_str(), &end, 10);
    if (errno != 0 || end == portText.c_str() || *end != '\0' || port < 0 || port > 65535) {
        throw badAddress(address, "'" + portText + "' is not a port number");
    }
    return HostAndPort{host, static_cast<int>(port)};
}

}  // namespace

MetricsServer::MetricsServer(const std::string& address, std::function<std::string()> page)
    : server(std::make_unique<httplib::Server>()) {
    const HostAndPort where = parseAddress(address);
    // Not the library's default, which shares the port with any other
    // server (SO_REUSEPORT): an address in use must fail.
    server->set_socket_options([](int socket) {
        const int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    server->Get("/metrics", [page = std::move(page)](const httplib::Request&, httplib::Response& response) {
        response.set_content(page(), "text/plain; version=0.0.4; charset=utf-8");
    });
    if (where.port == 0) {
        boundPort = server->bind_to_any_port(where.host);
    } else if (server->bind_to_port(where.host, where.port)) {
        boundPort = where.port;
    }
    if (boundPort <= 0) {
        const int error = errno;
        throw badAddress(address, std::string("cannot be bound") +
                                      (error != 0 ? std::string(" (") + std::strerror(error) + ")" : std::string()));
    }
    {
        const HostSignalsHeldBack signalsHeldBack;
        thread = std::thread([this] {
            // Named for `top -H` and debuggers, as the runtime's thread is.
            pthread_setname_np(pthread_self(), "krin-metrics");
            server->listen_after_bind();
            listenReturned = true;
        });
    }
    // A stop before the server runs would be lost, and the join would wait
    // for ever; the server takes no time to start once bound.
    while (!server->is_running() && !listenReturned) {
        std::this_thread::yield();
    }
}

MetricsServer::~MetricsServer() {
    server->stop();
    thread.join();
}

}  // namespace orlo::dabo::krin::detail
