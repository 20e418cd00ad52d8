#pragma once

#include <websocketpp/config/asio_no_tls.hpp>
#include <websocketpp/server.hpp>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tools/scope/TopicFeed.h"
#include "tools/scope/Viewer.h"

namespace lumo::scope {

struct ServerLimits {
    /// Open pages at once; the next is refused with 503.
    std::size_t viewers = 16;
    /// Points waiting for one page before new ones are dropped.
    std::size_t waitingPoints = 50000;
    /// Bytes the socket of one page may hold unsent before that page is skipped.
    std::size_t unsentBytes = 4 << 20;
    /// The largest message a page may send.
    std::size_t messageBytes = 64 << 10;
};

/// Serves the page and, over a WebSocket per page, the field catalogue of
/// every subscription, the thinned points of the fields the page watches and
/// the counts of each subscription. Runs on one thread of its own.
class ScopeServer {
public:
    ScopeServer(const std::vector<std::unique_ptr<TopicFeed>>& feeds, ServerLimits limits);
    ~ScopeServer();

    ScopeServer(const ScopeServer&) = delete;
    ScopeServer& operator=(const ScopeServer&) = delete;

    /// Binds `host`:`port` (0: a free one); throws std::runtime_error naming
    /// the address if it can't.
    void listen(const std::string& host, unsigned short port);

    /// The bound port.
    unsigned short port() const;

    void start();
    void stop();

    /// The counts of every subscription and of the pages, as JSON.
    std::string statsJson() const;

private:
    using Server = websocketpp::server<websocketpp::config::asio>;
    using Handle = websocketpp::connection_hdl;

    struct Page {
        std::shared_ptr<Viewer> viewer;
    };

    /// The viewer of the page on `handle`, null if none; `forget` lets go of the page.
    std::shared_ptr<Viewer> viewerOf(Handle handle, bool forget);
    bool validate(Handle handle);
    void opened(Handle handle);
    void closed(Handle handle);
    void received(Handle handle, Server::message_ptr message);
    void serveHttp(Handle handle);
    void tick(const websocketpp::lib::error_code& error);
    void scheduleTick();
    void refuse(Handle handle, const std::string& reason);
    std::string catalogJson() const;
    std::string countsJson(const Viewer* viewer) const;

    const std::vector<std::unique_ptr<TopicFeed>>& feeds;
    const ServerLimits limits;
    Server server;
    std::thread thread;
    unsigned short boundPort = 0;

    mutable std::mutex pagesMutex;
    std::map<Handle, Page, std::owner_less<Handle>> pages;
    unsigned long droppedByClosedPages = 0;
    unsigned long refusedPages = 0;
    unsigned long refusedMessages = 0;
    unsigned tickCount = 0;
};

}  // namespace lumo::scope
