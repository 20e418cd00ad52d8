#include "tools/common/WireTap.h"

#include <iostream>
#include <stdexcept>
#include <zmq.hpp>

#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"
#include "krin.pb.h"

namespace lumo::tools {

using orlo::dabo::krin::detail::KrinDaboEvent;

void WireQueue::push(WireSample sample) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        received.push_back(std::move(sample));
    }
    changed.notify_one();
}

bool WireQueue::next(WireSample& sample, std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!changed.wait_for(lock, limit, [&] { return !received.empty(); })) {
        return false;
    }
    sample = std::move(received.front());
    received.pop_front();
    return true;
}

WireTap::WireTap(std::shared_ptr<orlo::dabo::krin::detail::KrinDabo> runtime, std::string uri,
                 std::shared_ptr<WireQueue> queue, std::size_t source)
    : runtime(std::move(runtime)), uri(std::move(uri)), queue(std::move(queue)), source(source) {}

std::shared_ptr<WireTap> WireTap::open(const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& runtime,
                                       const std::string& uri, std::shared_ptr<WireQueue> queue,
                                       std::size_t source) {
    const auto address = orlo::dabo::krin::detail::parseKrinUri(uri, false, true);
    const std::string frame = orlo::dabo::krin::detail::createFrame0(
        static_cast<std::uint32_t>(orlo::dabo::util::topicNameHash(address.topic)));
    if (!queue) {
        queue = std::make_shared<WireQueue>();
    }
    std::shared_ptr<WireTap> tap(new WireTap(runtime, uri, std::move(queue), source));
    std::weak_ptr<orlo::dabo::krin::detail::EventsHandler> handler = tap;
    runtime->registerSubscriber(uri, frame, handler);
    std::unique_lock<std::mutex> lock(tap->mutex);
    if (!tap->changed.wait_for(lock, std::chrono::seconds(10), [&] { return tap->registered; })) {
        throw std::runtime_error("the runtime did not register the subscription to " + uri + " within 10 s");
    }
    return tap;
}

bool WireTap::events(std::shared_ptr<zmq::socket_t>& eventSocket, KrinDaboEvent event) {
    switch (event) {
        case orlo::dabo::krin::detail::REGISTERED: {
            std::lock_guard<std::mutex> lock(mutex);
            socket = eventSocket;
            registered = true;
            break;
        }
        case orlo::dabo::krin::detail::UNREGISTERED: {
            std::lock_guard<std::mutex> lock(mutex);
            unregistered = true;
            break;
        }
        case orlo::dabo::krin::detail::POLLER_READABLE:
            if (eventSocket) {
                readMessage(*eventSocket);
            }
            return true;
        default:
            return true;
    }
    changed.notify_all();
    return true;
}

void WireTap::readMessage(zmq::socket_t& from) {
    using namespace orlo::dabo::krin::detail;
    WireSample sample;
    try {
        readFrame(from);  // the topic frame; the socket's filter let only ours through
        requireMoreFrames(from);
        orlo::dabo::krin::rr::KrinHeader header;
        if (!header.ParseFromString(readFrame(from))) {
            throw std::runtime_error("the header frame does not parse");
        }
        requireMoreFrames(from);
        sample.payload = readFrame(from);
        discardFrames(from);
        sample.sampleSequence = header.samplesequence();
        sample.sourceTimestamp = header.sourcetimestamp();
        sample.dataEntityTypeHash = header.dataentitytypehash();
        sample.arrivalNs = static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                                          std::chrono::system_clock::now().time_since_epoch())
                                                          .count());
        sample.source = source;
    } catch (const std::exception& failure) {
        discardFrames(from);
        std::lock_guard<std::mutex> lock(mutex);
        ++malformedCount;
        std::cerr << "dropped a message of " << uri << ": " << failure.what() << std::endl;
        return;
    }
    queue->push(std::move(sample));
}

unsigned long WireTap::malformed() const {
    std::lock_guard<std::mutex> lock(mutex);
    return malformedCount;
}

void WireTap::close() {
    std::shared_ptr<zmq::socket_t> ours;
    {
        std::lock_guard<std::mutex> lock(mutex);
        ours = socket;
    }
    if (!ours) {
        return;
    }
    std::weak_ptr<orlo::dabo::krin::detail::EventsHandler> handler = shared_from_this();
    runtime->unregisterSubscriber(ours, handler);
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait_for(lock, std::chrono::seconds(5), [&] { return unregistered; });
}

}  // namespace lumo::tools
