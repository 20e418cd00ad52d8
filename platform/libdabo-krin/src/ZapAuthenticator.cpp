#include "ZapAuthenticator.h"

#include <log4cplus/loggingmacros.h>

#include <cstdint>
#include <utility>

#include "RuntimeLogger.h"

namespace orlo::dabo::krin::detail {

namespace {

// A request is: version, request id, domain, address, routing id, mechanism,
// then the mechanism's credentials (CURVE: the client's 32-byte public key).
constexpr std::size_t versionFrame = 0;
constexpr std::size_t requestIdFrame = 1;
constexpr std::size_t addressFrame = 3;
constexpr std::size_t mechanismFrame = 5;
constexpr std::size_t credentialsFrame = 6;
constexpr std::size_t curveKeyBytes = 32;

const char* const zapVersion = "1.0";

// Bounds the work of one turn of the runtime's loop, as for its other sockets.
constexpr int maxRequestsPerTurn = 64;

/// The Z85 text of a binary CURVE key.
std::string z85Of(const zmq::message_t& key) {
    char text[41];
    if (zmq_z85_encode(text, key.data<std::uint8_t>(), curveKeyBytes) == nullptr) {
        return {};
    }
    return text;
}

}  // namespace

const char* const ZapAuthenticator::endpoint = "inproc://zeromq.zap.01";

ZapAuthenticator::ZapAuthenticator(zmq::context_t& context, std::set<std::string> keys)
    : authorizedKeys(std::move(keys)), logger(runtimeLogger()), handler(context, zmq::socket_type::rep) {
    handler.set(zmq::sockopt::linger, 0);
    handler.bind(endpoint);
}

ZapAuthenticator::~ZapAuthenticator() { handler.close(); }

void ZapAuthenticator::serve() {
    for (int n = 0; n < maxRequestsPerTurn; ++n) {
        std::vector<zmq::message_t> request;
        if (!receive(request)) {
            return;
        }
        answer(request);
    }
}

bool ZapAuthenticator::receive(std::vector<zmq::message_t>& frames) {
    zmq::message_t frame;
    if (!handler.recv(frame, zmq::recv_flags::dontwait)) {
        return false;
    }
    bool more = frame.more();
    frames.push_back(std::move(frame));
    while (more) {
        // The parts of a request arrive together, so none is waited for.
        zmq::message_t next;
        if (!handler.recv(next, zmq::recv_flags::dontwait)) {
            break;
        }
        more = next.more();
        frames.push_back(std::move(next));
    }
    return true;
}

void ZapAuthenticator::answer(const std::vector<zmq::message_t>& request) {
    const std::string requestId = request.size() > requestIdFrame ? request[requestIdFrame].to_string() : "";
    // The requests come from ZeroMQ itself; one it cannot have meant is
    // answered all the same, since the socket takes no request before it has
    // replied to the last.
    if (request.size() <= credentialsFrame || request[versionFrame].to_string() != zapVersion) {
        LOG4CPLUS_ERROR(logger, "Malformed authentication request of " << request.size() << " frames refused");
        reply(requestId, "500", "Malformed request", "");
        return;
    }
    const std::string address = request[addressFrame].to_string();
    const std::string mechanism = request[mechanismFrame].to_string();
    if (mechanism != "CURVE" || request[credentialsFrame].size() != curveKeyBytes) {
        LOG4CPLUS_WARN(logger, "Refused a " << mechanism << " client from " << address
                                            << ": only CURVE clients with a listed key are admitted");
        reply(requestId, "400", "Not a CURVE client", "");
        return;
    }
    const std::string key = z85Of(request[credentialsFrame]);
    if (authorizedKeys.count(key) == 0) {
        LOG4CPLUS_WARN(logger, "Refused subscriber with CURVE public key " << key << " from " << address
                                                                         << ": the key is not in krin.runtime.curve.authorizedKeys");
        reply(requestId, "400", "Key not authorized", "");
        return;
    }
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, "Admitted subscriber with CURVE public key " << key << " from " << address);
    }
    reply(requestId, "200", "OK", key);
}

void ZapAuthenticator::reply(const std::string& requestId, const std::string& status, const std::string& text,
                             const std::string& userId) {
    // Version, request id, status code, status text, user id, metadata.
    handler.send(zmq::buffer(std::string(zapVersion)), zmq::send_flags::sndmore);
    handler.send(zmq::buffer(requestId), zmq::send_flags::sndmore);
    handler.send(zmq::buffer(status), zmq::send_flags::sndmore);
    handler.send(zmq::buffer(text), zmq::send_flags::sndmore);
    handler.send(zmq::buffer(userId), zmq::send_flags::sndmore);
    handler.send(zmq::message_t(), zmq::send_flags::none);
}

}  // namespace orlo::dabo::krin::detail
