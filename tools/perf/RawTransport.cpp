// The raw pipeline: three frames of the plug-in's sizes (topic frame, a
// header of a real header's length, a payload of the wire message's length)
// through the same runtime, with nothing of the plug-in on either side. The
// sample id rides in the first four payload bytes. This is the physical limit
// of the design: the runtime's hops and events, without headers built or
// parsed, without entities, without the engine.
#include <cstring>
#include <future>

#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"
#include "krin.pb.h"
#include "tools/perf/Transport.h"

namespace lumo::perf {

namespace {

using namespace orlo::dabo::krin::detail;

std::string topicFrameOf(const std::string& topic) {
    return createFrame0(static_cast<unsigned int>(orlo::dabo::util::topicNameHash(topic)));
}

/// A header frame as long as the one the plug-in sends.
std::string headerLikeFrame() {
    orlo::dabo::krin::rr::KrinHeader header;
    header.set_sourcetimestamp(1.7e9);
    header.set_topicidhash(0x12345678u);
    header.set_samplesequence(0x12345678u);
    header.set_dataentitytypehash(0xE043B579u);
    return header.SerializeAsString();
}

class Registration : public EventsHandler {
public:
    bool events(std::shared_ptr<zmq::socket_t>&, KrinDaboEvent event) override {
        if (event == REGISTERED) {
            registered.set_value();
        }
        return true;
    }
    std::promise<void> registered;
};

class RawSender : public Sender {
public:
    RawSender(const PerfOptions& options, const Endpoints& endpoints, int port, const std::string& topic)
        : dabo(endpoints.dabo),
          dealer(dabo->createDealer()),
          registration(std::make_shared<Registration>()),
          topicFrame(topicFrameOf(topic)),
          header(headerLikeFrame()),
          payload(wireSizeOf(options.size), 'p'),
          endpoint("tcp://127.0.0.1:" + std::to_string(port)),
          identity(getSocketIdentity(*dealer)) {
        std::weak_ptr<EventsHandler> handler = registration;
        auto registered = registration->registered.get_future();
        dabo->registerPublisher(endpoint, identity, handler, {});
        registered.wait();
    }
    ~RawSender() override {
        std::weak_ptr<EventsHandler> none;
        dabo->unregisterPublisher(endpoint, identity, none);
        dealer->close();
    }

    void send(std::uint32_t id) override {
        std::memcpy(payload.data(), &id, sizeof id);
        // As the plug-in does: never wait; a full queue loses the frame.
        dealer->send(zmq::buffer(topicFrame), zmq::send_flags::sndmore | zmq::send_flags::dontwait);
        dealer->send(zmq::buffer(header), zmq::send_flags::sndmore | zmq::send_flags::dontwait);
        zmq::message_t message(payload.data(), payload.size());
        dealer->send(message, zmq::send_flags::dontwait);
    }

private:
    std::shared_ptr<KrinDabo> dabo;
    std::unique_ptr<zmq::socket_t> dealer;
    std::shared_ptr<Registration> registration;
    std::string topicFrame;
    std::string header;
    std::string payload;
    std::string endpoint;
    std::string identity;
};

class RawHandler : public EventsHandler {
public:
    explicit RawHandler(OnSample onSample) : onSample(std::move(onSample)) {}
    bool events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) override {
        if (event == REGISTERED) {
            std::lock_guard<std::mutex> lock(mutex);
            this->socket = socket;
            return true;
        }
        if (event != POLLER_READABLE) {
            return true;
        }
        zmq::message_t topic;
        zmq::message_t header;
        zmq::message_t payload;
        (void)socket->recv(topic, zmq::recv_flags::dontwait);
        (void)socket->recv(header, zmq::recv_flags::dontwait);
        (void)socket->recv(payload, zmq::recv_flags::dontwait);
        std::uint32_t id = 0;
        if (payload.size() >= sizeof id) {
            std::memcpy(&id, payload.data(), sizeof id);
            onSample(id);
        }
        return true;
    }
    std::shared_ptr<zmq::socket_t> registeredSocket() {
        std::lock_guard<std::mutex> lock(mutex);
        return socket;
    }

private:
    OnSample onSample;
    std::mutex mutex;
    std::shared_ptr<zmq::socket_t> socket;
};

class RawReceiver : public Receiver {
public:
    RawReceiver(const Endpoints& endpoints, const std::string& uri, const std::string& topic, OnSample onSample)
        : dabo(endpoints.dabo), handler(std::make_shared<RawHandler>(std::move(onSample))) {
        std::weak_ptr<EventsHandler> weak = handler;
        dabo->registerSubscriber(uri, topicFrameOf(topic), weak);
    }
    ~RawReceiver() override {
        std::shared_ptr<zmq::socket_t> socket = handler->registeredSocket();
        std::weak_ptr<EventsHandler> none;
        if (socket) {
            dabo->unregisterSubscriber(socket, none);
        }
    }
    void run(Stopper& stopper) override { stopper.wait(); }

private:
    std::shared_ptr<KrinDabo> dabo;
    std::shared_ptr<RawHandler> handler;
};

}  // namespace

std::unique_ptr<Sender> makeRawSender(const PerfOptions& options, const Endpoints& endpoints, int port,
                                      const std::string& topic) {
    return std::make_unique<RawSender>(options, endpoints, port, topic);
}

std::unique_ptr<Receiver> makeRawReceiver(const Endpoints& endpoints, const std::string& uri,
                                          const std::string& topic, OnSample onSample) {
    return std::make_unique<RawReceiver>(endpoints, uri, topic, std::move(onSample));
}

}  // namespace lumo::perf
