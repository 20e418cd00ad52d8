#include "tools/scope/ScopeServer.h"

#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>

#include <stdexcept>

#include "tools/scope/Json.h"
#include "tools/scope/PageFiles.h"

namespace lumo::scope {

namespace {

/// How often the pages get what waits for them.
constexpr auto tickInterval = std::chrono::milliseconds(50);
/// Every this many ticks the pages get the counts too.
constexpr unsigned ticksPerCounts = 10;

std::string errorJson(const std::string& reason) {
    std::string out = "{\"error\":";
    appendJsonString(out, reason);
    out += '}';
    return out;
}

}  // namespace

ScopeServer::ScopeServer(const std::vector<std::unique_ptr<TopicFeed>>& feeds, ServerLimits limits)
    : feeds(feeds), limits(limits) {
    server.clear_access_channels(websocketpp::log::alevel::all);
    server.clear_error_channels(websocketpp::log::elevel::all);
    server.init_asio();
    server.set_reuse_addr(true);
    server.set_max_message_size(limits.messageBytes);
    server.set_validate_handler([this](Handle handle) { return validate(handle); });
    server.set_open_handler([this](Handle handle) { opened(handle); });
    server.set_close_handler([this](Handle handle) { closed(handle); });
    server.set_fail_handler([this](Handle handle) { closed(handle); });
    server.set_message_handler([this](Handle handle, Server::message_ptr message) { received(handle, message); });
    server.set_http_handler([this](Handle handle) { serveHttp(handle); });
}

ScopeServer::~ScopeServer() { stop(); }

void ScopeServer::listen(const std::string& host, unsigned short port) {
    websocketpp::lib::error_code error;
    server.listen(host, std::to_string(port), error);
    if (error) {
        throw std::runtime_error("cannot listen on " + host + ":" + std::to_string(port) + ": " + error.message());
    }
    websocketpp::lib::asio::error_code asioError;
    const auto endpoint = server.get_local_endpoint(asioError);
    if (asioError) {
        throw std::runtime_error("cannot tell the port bound on " + host + ": " + asioError.message());
    }
    boundPort = endpoint.port();
    server.start_accept(error);
    if (error) {
        throw std::runtime_error("cannot accept on " + host + ":" + std::to_string(boundPort) + ": " + error.message());
    }
}

unsigned short ScopeServer::port() const { return boundPort; }

void ScopeServer::start() {
    scheduleTick();
    thread = std::thread([this] { server.run(); });
}

void ScopeServer::stop() {
    if (!thread.joinable()) {
        return;
    }
    server.stop();
    thread.join();
}

bool ScopeServer::validate(Handle handle) {
    auto connection = server.get_con_from_hdl(handle);
    // A page of another site must not read the data: a browser names the
    // page's origin, and only the scope's own page may connect.
    const std::string origin = connection->get_origin();
    const std::string host = connection->get_request_header("Host");
    std::lock_guard<std::mutex> lock(pagesMutex);
    if (!origin.empty() && origin != "null" && origin != "http://" + host) {
        ++refusedPages;
        connection->set_status(websocketpp::http::status_code::forbidden);
        connection->set_body("krin-scope: pages of " + origin + " may not connect; open http://" + host + "/\n");
        return false;
    }
    if (pages.size() >= limits.viewers) {
        ++refusedPages;
        connection->set_status(websocketpp::http::status_code::service_unavailable);
        connection->set_body("krin-scope: " + std::to_string(limits.viewers) +
                             " pages are open already; close one to open another\n");
        return false;
    }
    // Counted from here, not from the opening, so that a crowd of handshakes
    // at once cannot pass the limit together; the fail handler lets go of
    // the ones that never open.
    pages[handle] = Page{std::make_shared<Viewer>(limits.waitingPoints)};
    return true;
}

void ScopeServer::opened(Handle handle) {
    websocketpp::lib::error_code error;
    server.send(handle, catalogJson(), websocketpp::frame::opcode::text, error);
}

std::shared_ptr<Viewer> ScopeServer::viewerOf(Handle handle, bool forget) {
    std::lock_guard<std::mutex> lock(pagesMutex);
    const auto page = pages.find(handle);
    if (page == pages.end()) {
        return nullptr;
    }
    auto viewer = page->second.viewer;
    if (forget) {
        pages.erase(page);
    }
    return viewer;
}

void ScopeServer::closed(Handle handle) {
    const auto viewer = viewerOf(handle, true);
    if (!viewer) {
        return;
    }
    for (const auto& feed : feeds) {
        feed->watch(viewer, {});
    }
    std::lock_guard<std::mutex> lock(pagesMutex);
    droppedByClosedPages += viewer->dropped();
}

void ScopeServer::refuse(Handle handle, const std::string& reason) {
    {
        std::lock_guard<std::mutex> lock(pagesMutex);
        ++refusedMessages;
    }
    websocketpp::lib::error_code error;
    server.send(handle, errorJson(reason), websocketpp::frame::opcode::text, error);
}

void ScopeServer::received(Handle handle, Server::message_ptr message) {
    const auto viewer = viewerOf(handle, false);
    if (!viewer) {
        return;
    }
    if (message->get_opcode() != websocketpp::frame::opcode::text) {
        refuse(handle, "messages are JSON text, such as {\"watch\":[\"0/sample_id\"]}");
        return;
    }
    google::protobuf::Struct request;
    const auto status = google::protobuf::util::JsonStringToMessage(message->get_payload(), &request);
    if (!status.ok()) {
        refuse(handle, "not a JSON object: " + std::string(status.message()));
        return;
    }
    const auto& fieldsOfRequest = request.fields();
    const auto watch = fieldsOfRequest.find("watch");
    if (fieldsOfRequest.size() != 1 || watch == fieldsOfRequest.end() || !watch->second.has_list_value()) {
        refuse(handle, "expected {\"watch\":[FIELD_ID, ...]}, the ids as in the catalogue");
        return;
    }
    std::vector<std::vector<std::size_t>> chosen(feeds.size());
    std::string unknown;
    for (const auto& value : watch->second.list_value().values()) {
        const std::string id = value.has_string_value() ? value.string_value() : "";
        const auto slash = id.find('/');
        int field = -1;
        std::size_t feed = 0;
        if (slash != std::string::npos && slash > 0 && slash < 4 &&
            id.find_first_not_of("0123456789") == slash) {
            feed = std::stoul(id.substr(0, slash));
            if (feed < feeds.size()) {
                field = feeds[feed]->fieldOf(id.substr(slash + 1));
            }
        }
        if (field < 0) {
            unknown += (unknown.empty() ? "'" : ", '") + (value.has_string_value() ? id : "(not a text)") + "'";
            continue;
        }
        chosen[feed].push_back(static_cast<std::size_t>(field));
    }
    for (std::size_t i = 0; i < feeds.size(); ++i) {
        feeds[i]->watch(viewer, chosen[i]);
    }
    if (!unknown.empty()) {
        refuse(handle, "no such field: " + unknown + "; the others are watched");
    }
}

void ScopeServer::serveHttp(Handle handle) {
    auto connection = server.get_con_from_hdl(handle);
    std::string path = connection->get_resource();
    path = path.substr(0, path.find('?'));
    if (path == "/stats.json") {
        connection->set_status(websocketpp::http::status_code::ok);
        connection->append_header("Content-Type", "application/json");
        connection->append_header("Cache-Control", "no-store");
        connection->set_body(statsJson());
        return;
    }
    const std::string name = path == "/" ? "index.html" : path.substr(1);
    const PageFile* file = findPageFile(name);
    if (file == nullptr) {
        connection->set_status(websocketpp::http::status_code::not_found);
        connection->append_header("Content-Type", "text/plain");
        connection->set_body("krin-scope: no page at " + path + "\n");
        return;
    }
    connection->set_status(websocketpp::http::status_code::ok);
    connection->append_header("Content-Type", contentTypeOf(name));
    connection->set_body(std::string(reinterpret_cast<const char*>(file->data), file->size));
}

void ScopeServer::scheduleTick() {
    server.set_timer(static_cast<long>(tickInterval.count()),
                     [this](const websocketpp::lib::error_code& error) { tick(error); });
}

void ScopeServer::tick(const websocketpp::lib::error_code& error) {
    if (error) {
        return;  // cancelled: the server stops
    }
    std::vector<std::pair<Handle, std::shared_ptr<Viewer>>> open;
    {
        std::lock_guard<std::mutex> lock(pagesMutex);
        for (const auto& [handle, page] : pages) {
            open.emplace_back(handle, page.viewer);
        }
    }
    const bool withCounts = ++tickCount % ticksPerCounts == 0;
    for (const auto& [handle, viewer] : open) {
        websocketpp::lib::error_code sendError;
        auto connection = server.get_con_from_hdl(handle, sendError);
        if (sendError || connection->get_state() != websocketpp::session::state::open) {
            continue;
        }
        // A page that does not keep up is skipped; its box fills and drops.
        if (connection->get_buffered_amount() > limits.unsentBytes) {
            continue;
        }
        const std::string batch = viewer->takeBatch();
        if (!batch.empty()) {
            connection->send(batch, websocketpp::frame::opcode::text);
        }
        if (withCounts) {
            connection->send(countsJson(viewer.get()), websocketpp::frame::opcode::text);
        }
    }
    scheduleTick();
}

std::string ScopeServer::catalogJson() const {
    std::string out = "{\"catalog\":[";
    for (std::size_t i = 0; i < feeds.size(); ++i) {
        const TopicFeed& feed = *feeds[i];
        out += i == 0 ? "{\"topic\":" : ",{\"topic\":";
        appendJsonString(out, feed.topic());
        out += ",\"uri\":";
        appendJsonString(out, feed.uri());
        out += ",\"fields\":[";
        for (std::size_t f = 0; f < feed.fields().size(); ++f) {
            const PlotField& field = feed.fields()[f];
            out += f == 0 ? "{\"id\":" : ",{\"id\":";
            appendJsonString(out, feed.fieldId(f));
            out += ",\"path\":";
            appendJsonString(out, field.path);
            out += ",\"kind\":";
            appendJsonString(out, field.kind);
            out += field.array ? ",\"array\":true" : ",\"array\":false";
            if (!field.enumNames.empty()) {
                out += ",\"names\":{";
                bool first = true;
                for (const auto& [number, name] : field.enumNames) {
                    out += first ? "" : ",";
                    first = false;
                    appendJsonString(out, std::to_string(number));
                    out += ':';
                    appendJsonString(out, name);
                }
                out += '}';
            }
            out += '}';
        }
        out += "]}";
    }
    out += "]}";
    return out;
}

std::string ScopeServer::countsJson(const Viewer* viewer) const {
    std::string out = "{\"counts\":{\"topics\":[";
    for (std::size_t i = 0; i < feeds.size(); ++i) {
        const FeedCounts counts = feeds[i]->counts();
        out += i == 0 ? "{" : ",{";
        out += "\"topic\":";
        appendJsonString(out, feeds[i]->topic());
        out += ",\"uri\":";
        appendJsonString(out, feeds[i]->uri());
        out += ",\"samples\":" + std::to_string(counts.samples) + ",\"gaps\":" + std::to_string(counts.gaps) +
               ",\"missing\":" + std::to_string(counts.missing) + ",\"first\":" + std::to_string(counts.firstSequence) +
               ",\"last\":" + std::to_string(counts.lastSequence) + ",\"refused\":" + std::to_string(counts.refused) +
               ",\"rate\":";
        appendJsonNumber(out, counts.rate);
        out += '}';
    }
    out += "]";
    std::lock_guard<std::mutex> lock(pagesMutex);
    unsigned long dropped = droppedByClosedPages;
    for (const auto& entry : pages) {
        dropped += entry.second.viewer->dropped();
    }
    out += ",\"pages\":" + std::to_string(pages.size()) + ",\"droppedForAllPages\":" + std::to_string(dropped) +
           ",\"refusedPages\":" + std::to_string(refusedPages) + ",\"refusedMessages\":" +
           std::to_string(refusedMessages);
    if (viewer != nullptr) {
        out += ",\"droppedForThisPage\":" + std::to_string(viewer->dropped());
    }
    out += "}}";
    return out;
}

std::string ScopeServer::statsJson() const { return countsJson(nullptr); }

}  // namespace lumo::scope
