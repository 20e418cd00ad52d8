#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

namespace orlo::dabo::krin::detail {

/// The property that turns the metrics page on: "HOST:PORT" ("[::1]:9464"
/// for an IPv6 address; port 0 for any free port).
extern const char* const metricsAddressProperty;

/// Serves `page()` at /metrics over HTTP on a thread of its own, as the
/// Prometheus text exposition format (version 0.0.4).
class MetricsServer {
public:
    /// Binds `address` before it returns; a DaboException naming the property
    /// and the address when it is not HOST:PORT or cannot be bound.
    MetricsServer(const std::string& address, std::function<std::string()> page);
    /// Stops serving and waits for the server's thread.
    ~MetricsServer();
    MetricsServer(const MetricsServer&) = delete;
    MetricsServer& operator=(const MetricsServer&) = delete;

    /// The bound port.
    int port() const { return boundPort; }

private:
    std::unique_ptr<httplib::Server> server;
    int boundPort = 0;
    std::atomic<bool> listenReturned{false};
    std::thread thread;
};

}  // namespace orlo::dabo::krin::detail
