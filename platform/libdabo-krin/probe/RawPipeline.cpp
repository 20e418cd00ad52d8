#include "dabo/krin/probe/RawPipeline.h"

#include <algorithm>
#include <cstring>
#include <future>
#include <mutex>
#include <zmq.hpp>

#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"
#include "krin.pb.h"

namespace orlo::dabo::krin::probe {

using namespace orlo::dabo::krin::detail;

std::string topicFrameOf(const std::string& topic) {
    return createFrame0(static_cast<unsigned int>(orlo::dabo::util::topicNameHash(topic)));
}

std::string headerLikeFrame() {
    orlo::dabo::krin::rr::KrinHeader header;
    header.set_sourcetimestamp(1.7e9);
    header.set_topicidhash(0x12345678u);
    header.set_samplesequence(0x12345678u);
    header.set_dataentitytypehash(0xE043B579u);
    return header.SerializeAsString();
}

namespace {

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

class ReceivingHandler : public EventsHandler {
public:
    explicit ReceivingHandler(std::function<void(std::uint32_t)> onSample) : onSample(std::move(onSample)) {}

    bool events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) override {
        if (event == REGISTERED) {
            std::lock_guard<std::mutex> lock(mutex);
            registeredSocket = socket;
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

    std::shared_ptr<zmq::socket_t> socket() {
        std::lock_guard<std::mutex> lock(mutex);
        return registeredSocket;
    }

private:
    std::function<void(std::uint32_t)> onSample;
    std::mutex mutex;
    std::shared_ptr<zmq::socket_t> registeredSocket;
};

}  // namespace

struct RawSender::State {
    Runtime dabo;
    std::unique_ptr<zmq::socket_t> dealer;
    std::shared_ptr<Registration> registration = std::make_shared<Registration>();
    std::string topicFrame;
    std::string header = headerLikeFrame();
    std::string payload;
    std::string endpoint;
    std::string identity;
};

RawSender::RawSender(const Runtime& runtime, int port, const std::string& topic, std::size_t payloadSize)
    : state(std::make_unique<State>()) {
    state->dabo = runtime;
    state->dealer = runtime->createDealer();
    state->topicFrame = topicFrameOf(topic);
    state->payload.assign(std::max(payloadSize, sizeof(std::uint32_t)), 'p');
    state->endpoint = "tcp://127.0.0.1:" + std::to_string(port);
    state->identity = getSocketIdentity(*state->dealer);
    std::weak_ptr<EventsHandler> handler = state->registration;
    auto registered = state->registration->registered.get_future();
    runtime->registerPublisher(state->endpoint, state->identity, handler, {});
    registered.wait();
}

RawSender::~RawSender() {
    std::weak_ptr<EventsHandler> none;
    state->dabo->unregisterPublisher(state->endpoint, state->identity, none);
    state->dealer->close();
}

void RawSender::send(std::uint32_t id) {
    std::memcpy(state->payload.data(), &id, sizeof id);
    zmq::socket_t& dealer = *state->dealer;
    dealer.send(zmq::buffer(state->topicFrame), zmq::send_flags::sndmore | zmq::send_flags::dontwait);
    dealer.send(zmq::buffer(state->header), zmq::send_flags::sndmore | zmq::send_flags::dontwait);
    zmq::message_t message(state->payload.data(), state->payload.size());
    dealer.send(message, zmq::send_flags::dontwait);
}

struct RawReceiver::State {
    Runtime dabo;
    std::shared_ptr<ReceivingHandler> handler;
};

RawReceiver::RawReceiver(const Runtime& runtime, const std::string& uri, const std::string& topic,
                         std::function<void(std::uint32_t id)> onSample)
    : state(std::make_unique<State>()) {
    state->dabo = runtime;
    state->handler = std::make_shared<ReceivingHandler>(std::move(onSample));
    std::weak_ptr<EventsHandler> handler = state->handler;
    runtime->registerSubscriber(uri, topicFrameOf(topic), handler);
}

RawReceiver::~RawReceiver() {
    std::shared_ptr<zmq::socket_t> socket = state->handler->socket();
    std::weak_ptr<EventsHandler> none;
    if (socket) {
        state->dabo->unregisterSubscriber(socket, none);
    }
}

}  // namespace orlo::dabo::krin::probe
