#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"
#include "krin.pb.h"

namespace lumo::test {

/// An independent sender of hand-made messages: a plain ZeroMQ PUB socket
/// bound on a free loopback port, at which a subscriber's URI points. It
/// knows nothing of the library beyond the wire format, so it can send what
/// no publisher would: one frame, four frames, broken headers, foreign types.
class WirePeer {
public:
    WirePeer() : context(1), socket(context, zmq::socket_type::pub) {
        socket.set(zmq::sockopt::linger, 0);
        socket.set(zmq::sockopt::sndhwm, 0);
        socket.bind("tcp://127.0.0.1:*");
        const std::string endpoint = socket.get(zmq::sockopt::last_endpoint);
        port = endpoint.substr(endpoint.rfind(':') + 1);
    }

    /// The URI of `topicPath` (with its leading '/') at this peer.
    std::string uri(const std::string& topicPath) const { return "krin.ps://127.0.0.1:" + port + topicPath; }

    /// Sends `frames` as one multipart message.
    void send(const std::vector<std::string>& frames) {
        for (std::size_t i = 0; i < frames.size(); ++i) {
            const bool more = i + 1 < frames.size();
            socket.send(zmq::buffer(frames[i]), more ? zmq::send_flags::sndmore : zmq::send_flags::none);
        }
    }

    /// The peer's endpoint for a connecting socket.
    std::string endpoint() const { return "tcp://127.0.0.1:" + port; }

private:
    zmq::context_t context;
    zmq::socket_t socket;
    std::string port;
};

/// A SUB socket of the test's own, connected to a peer, for tests that play
/// the runtime's thread themselves and hand the socket to a subscriber.
class PeerSocket {
public:
    explicit PeerSocket(WirePeer& peer) : context(1), socket(std::make_shared<zmq::socket_t>(context, zmq::socket_type::sub)) {
        socket->set(zmq::sockopt::linger, 0);
        socket->set(zmq::sockopt::subscribe, "");
        socket->connect(peer.endpoint());
        // Probe until the subscription has reached the peer, then drop the probes.
        for (int attempt = 0; attempt < 100 && !joined; ++attempt) {
            peer.send({"probe"});
            joined = awaitReadable(std::chrono::milliseconds(100));
        }
        drain();
    }

    bool awaitReadable(std::chrono::milliseconds limit = std::chrono::seconds(10)) {
        zmq::pollitem_t item{static_cast<void*>(*socket), 0, ZMQ_POLLIN, 0};
        return zmq::poll(&item, 1, limit) > 0;
    }

    /// Every frame readable now.
    std::vector<std::string> drain() {
        std::vector<std::string> frames;
        zmq::message_t frame;
        while (socket->recv(frame, zmq::recv_flags::dontwait)) {
            frames.push_back(frame.to_string());
        }
        return frames;
    }

    zmq::context_t context;
    std::shared_ptr<zmq::socket_t> socket;
    bool joined = false;
};

/// The first frame of every message of `topicPath`, as both ends compute it.
inline std::string topicFrameOf(const std::string& topicPath) {
    return orlo::dabo::krin::detail::createFrame0(
        static_cast<std::uint32_t>(orlo::dabo::util::topicNameHash(topicPath)));
}

/// A header frame as a publisher makes it, naming the payload type `typeHash`.
inline std::string headerFrame(std::uint32_t typeHash, double sourceTimestamp,
                               const std::string* traceContext = nullptr) {
    orlo::dabo::krin::rr::KrinHeader header;
    if (traceContext != nullptr) {
        header.set_tracecontext(*traceContext);
    }
    header.set_sourcetimestamp(sourceTimestamp);
    header.set_topicidhash(0);
    header.set_samplesequence(0);
    header.set_dataentitytypehash(typeHash);
    return header.SerializeAsString();
}

/// Now as a sample time: seconds since the epoch.
inline double nowAsSourceTimestamp() {
    return orlo::dabo::util::timestampToDouble(orlo::dabo::util::currentTimeMillis());
}

}  // namespace lumo::test
