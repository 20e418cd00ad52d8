// The floor: the same three frames between two processes over a bare ZeroMQ
// XPUB->SUB pair, with neither the runtime nor the plug-in in either process.
// What the runtime adds to ZeroMQ is measured against this.
#include <algorithm>
#include <cstring>
#include <zmq.hpp>

#include "dabo/krin/probe/RawPipeline.h"
#include "dabo/util/DaboUtil.h"
#include "tools/perf/Transport.h"

namespace lumo::perf {

namespace {

using Clock = std::chrono::steady_clock;

/// The runtime's own queue bound, so that both are measured alike.
int highWaterMarkOf(const PerfOptions& options) {
    return static_cast<int>(
        orlo::dabo::util::getLongProperty(options.runtimeProperties, "krin.runtime.highWaterMark", 1000));
}

std::string endpointOf(int port) { return "tcp://127.0.0.1:" + std::to_string(port); }

class ZmqSender : public Sender {
public:
    ZmqSender(const PerfOptions& options, int port, const std::string& topic)
        : socket(context, zmq::socket_type::xpub),
          topicFrame(orlo::dabo::krin::probe::topicFrameOf(topic)),
          header(orlo::dabo::krin::probe::headerLikeFrame()),
          payload(std::max(wireSizeOf(options.size), sizeof(std::uint32_t)), 'p') {
        socket.set(zmq::sockopt::linger, 0);
        socket.set(zmq::sockopt::sndhwm, highWaterMarkOf(options));
        socket.bind(endpointOf(port));
    }

    void send(const Stamp& stamp) override {
        std::memcpy(payload.data(), &stamp.id, sizeof stamp.id);
        // As the plug-in does: never wait; a full queue loses the sample.
        socket.send(zmq::buffer(topicFrame), zmq::send_flags::sndmore | zmq::send_flags::dontwait);
        socket.send(zmq::buffer(header), zmq::send_flags::sndmore | zmq::send_flags::dontwait);
        socket.send(zmq::buffer(payload), zmq::send_flags::dontwait);
    }

    bool awaitSubscribers(int count, std::chrono::milliseconds limit) override {
        const auto deadline = Clock::now() + limit;
        while (joined < count) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            zmq::pollitem_t item{socket.handle(), 0, ZMQ_POLLIN, 0};
            if (left.count() <= 0 || zmq::poll(&item, 1, left) == 0) {
                return false;
            }
            zmq::message_t subscription;
            if (socket.recv(subscription, zmq::recv_flags::dontwait) && subscription.size() > 0 &&
                subscription.data<char>()[0] == 1) {
                ++joined;
            }
        }
        return true;
    }

private:
    zmq::context_t context{1};
    zmq::socket_t socket;
    std::string topicFrame;
    std::string header;
    std::string payload;
    int joined = 0;
};

class ZmqReceiver : public Receiver {
public:
    ZmqReceiver(const PerfOptions& options, int port, const std::string& topic, OnSample onSample)
        : socket(context, zmq::socket_type::sub), onSample(std::move(onSample)) {
        socket.set(zmq::sockopt::linger, 0);
        socket.set(zmq::sockopt::rcvhwm, highWaterMarkOf(options));
        socket.set(zmq::sockopt::subscribe, orlo::dabo::krin::probe::topicFrameOf(topic));
        socket.connect(endpointOf(port));
    }

    // Takes samples on the calling thread, looking at the stopper between
    // waits, as the plug-in's read mode does.
    void run(Stopper& stopper, const OnRunning& running) override {
        running();
        zmq::message_t topic;
        zmq::message_t header;
        zmq::message_t payload;
        while (!stopper.stopped()) {
            zmq::pollitem_t item{socket.handle(), 0, ZMQ_POLLIN, 0};
            if (zmq::poll(&item, 1, std::chrono::milliseconds(100)) == 0) {
                continue;
            }
            while (socket.recv(topic, zmq::recv_flags::dontwait)) {
                (void)socket.recv(header);
                (void)socket.recv(payload);
                std::uint32_t id = 0;
                if (payload.size() >= sizeof id) {
                    std::memcpy(&id, payload.data(), sizeof id);
                    onSample({id, 0});
                }
            }
        }
    }

private:
    zmq::context_t context{1};
    zmq::socket_t socket;
    OnSample onSample;
};

}  // namespace

std::unique_ptr<Sender> makeZmqSender(const PerfOptions& options, int port, const std::string& topic) {
    return std::make_unique<ZmqSender>(options, port, topic);
}

std::unique_ptr<Receiver> makeZmqReceiver(const PerfOptions& options, int port, const std::string& topic,
                                          OnSample onSample) {
    return std::make_unique<ZmqReceiver>(options, port, topic, std::move(onSample));
}

}  // namespace lumo::perf
