#include "tools/tap/WireTap.h"

#include <iostream>
#include <stdexcept>
#include <zmq.hpp>

#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"
#include "krin.pb.h"

namespace lumo::tools {

using orlo::dabo::krin::detail::KrinDaboEvent;

WireTap::WireTap(std::shared_ptr<orlo::dabo::krin::detail::KrinDabo> runtime, std::string topicFrame,
                 std::size_t capacity)
    : runtime(std::move(runtime)), topicFrame(std::move(topicFrame)), capacity(capacity) {}

std::shared_ptr<WireTap> WireTap::open(const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& runtime,
                                       const std::string& uri, std::size_t capacity) {
    const auto address = orlo::dabo::krin::detail::parseKrinUri(uri, false, true);
    const std::string frame = orlo::dabo::krin::detail::createFrame0(
        static_cast<std::uint32_t>(orlo::dabo::util::topicNameHash(address.topic)));
    std::shared_ptr<WireTap> tap(new WireTap(runtime, frame, capacity));
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
        const std::string frame = readFrame(from);
        if (frame != topicFrame) {
            throw std::runtime_error("its topic frame " + orlo::dabo::util::hexStr(frame) + " is not the topic's " +
                                     orlo::dabo::util::hexStr(topicFrame));
        }
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
    } catch (const std::exception& failure) {
        discardFrames(from);
        std::lock_guard<std::mutex> lock(mutex);
        ++malformedCount;
        std::cerr << "krin-tap: dropped a message: " << failure.what() << std::endl;
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (received.size() >= capacity) {
            received.pop_front();
            ++droppedCount;
            const auto now = std::chrono::steady_clock::now();
            if (now >= nextDropReport) {
                std::cerr << "krin-tap: dropped " << droppedCount << " samples so far: the output is slower than "
                          << "the topic (--queue " << capacity << ")" << std::endl;
                nextDropReport = now + std::chrono::seconds(1);
            }
        }
        received.push_back(std::move(sample));
    }
    changed.notify_all();
}

bool WireTap::next(WireSample& sample, std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!changed.wait_for(lock, limit, [&] { return !received.empty() || interrupted; }) || received.empty()) {
        return false;
    }
    sample = std::move(received.front());
    received.pop_front();
    return true;
}

void WireTap::interrupt() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        interrupted = true;
    }
    changed.notify_all();
}

unsigned long WireTap::dropped() const {
    std::lock_guard<std::mutex> lock(mutex);
    return droppedCount;
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
    // Interrupted, the tool has only a moment left: the confirmation is not worth waiting for.
    changed.wait_for(lock, interrupted ? std::chrono::milliseconds(20) : std::chrono::milliseconds(5000),
                     [&] { return unregistered; });
}

}  // namespace lumo::tools
