#include "lumotypes/host/WireTap.h"

#include <zmq.hpp>

#include <chrono>
#include <stdexcept>

#include "dabo/krin/detail/EventsHandler.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"
#include "krin.pb.h"

namespace lumotypes::host {

using orlo::dabo::krin::detail::KrinDaboEvent;

/// The handler the runtime calls on its thread; shared with the runtime
/// through a weak pointer, so it is never called once it is gone.
class WireTap::Reader : public orlo::dabo::krin::detail::EventsHandler {
public:
    Reader(Runtime runtime, std::string topicFrame, MalformedHandler onMalformed, std::shared_ptr<WireQueue> queue,
           std::size_t source)
        : runtime(std::move(runtime)),
          topicFrame(std::move(topicFrame)),
          onMalformed(std::move(onMalformed)),
          queue(std::move(queue)),
          source(source) {}

    bool events(std::shared_ptr<zmq::socket_t>& eventSocket, KrinDaboEvent event) override {
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

    void readMessage(zmq::socket_t& from) {
        using namespace orlo::dabo::krin::detail;
        WireSample sample;
        try {
            const std::string frame = readFrame(from);
            if (frame != topicFrame) {
                throw std::runtime_error("its topic frame " + orlo::dabo::util::hexStr(frame) +
                                         " is not the topic's " + orlo::dabo::util::hexStr(topicFrame));
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
            sample.arrivalNs = static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                                              std::chrono::system_clock::now().time_since_epoch())
                                                              .count());
            sample.source = source;
        } catch (const std::exception& failure) {
            discardFrames(from);
            {
                std::lock_guard<std::mutex> lock(mutex);
                ++malformedCount;
            }
            if (onMalformed) {
                onMalformed(failure.what());
            }
            return;
        }
        queue->push(std::move(sample));
    }

    Runtime runtime;
    const std::string topicFrame;
    MalformedHandler onMalformed;
    const std::shared_ptr<WireQueue> queue;
    const std::size_t source;
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::shared_ptr<zmq::socket_t> socket;
    bool registered = false;
    bool unregistered = false;
    bool interrupted = false;
    unsigned long malformedCount = 0;
};

WireQueue::WireQueue(std::size_t capacity, DropHandler onDrop)
    : capacity(capacity == 0 ? 1 : capacity), onDrop(std::move(onDrop)) {}

void WireQueue::push(WireSample sample) {
    unsigned long droppedNow = 0;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (received.size() >= capacity) {
            received.pop_front();
            droppedNow = ++droppedCount;
        }
        received.push_back(std::move(sample));
    }
    changed.notify_all();
    if (droppedNow != 0 && onDrop) {
        onDrop(droppedNow);
    }
}

bool WireQueue::next(WireSample& sample, std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!changed.wait_for(lock, limit, [&] { return !received.empty() || interrupted; }) || received.empty()) {
        return false;
    }
    sample = std::move(received.front());
    received.pop_front();
    return true;
}

void WireQueue::interrupt() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        interrupted = true;
    }
    changed.notify_all();
}

unsigned long WireQueue::dropped() const {
    std::lock_guard<std::mutex> lock(mutex);
    return droppedCount;
}

WireTap::WireTap(std::shared_ptr<Reader> reader) : reader(std::move(reader)) {}

WireTap::~WireTap() {
    close();
}

std::unique_ptr<WireTap> WireTap::open(const Runtime& runtime, const std::string& uri, MalformedHandler onMalformed,
                                       std::size_t capacity, DropHandler onDrop) {
    return open(runtime, uri, std::make_shared<WireQueue>(capacity, std::move(onDrop)), 0, std::move(onMalformed));
}

std::unique_ptr<WireTap> WireTap::open(const Runtime& runtime, const std::string& uri,
                                       std::shared_ptr<WireQueue> queue, std::size_t source,
                                       MalformedHandler onMalformed) {
    const auto address = orlo::dabo::krin::detail::parseKrinUri(uri, false, true);
    const std::string frame = orlo::dabo::krin::detail::createFrame0(
        static_cast<std::uint32_t>(orlo::dabo::util::topicNameHash(address.topic)));
    auto reader = std::make_shared<Reader>(runtime, frame, std::move(onMalformed), std::move(queue), source);
    std::weak_ptr<orlo::dabo::krin::detail::EventsHandler> handler = reader;
    runtime->registerSubscriber(uri, frame, handler);
    std::unique_lock<std::mutex> lock(reader->mutex);
    if (!reader->changed.wait_for(lock, std::chrono::seconds(10), [&] { return reader->registered; })) {
        throw std::runtime_error("the runtime did not register the subscription to " + uri + " within 10 s");
    }
    return std::unique_ptr<WireTap>(new WireTap(std::move(reader)));
}

bool WireTap::next(WireSample& sample, std::chrono::milliseconds limit) {
    return reader->queue->next(sample, limit);
}

void WireTap::interrupt() {
    {
        std::lock_guard<std::mutex> lock(reader->mutex);
        reader->interrupted = true;
    }
    reader->queue->interrupt();
}

unsigned long WireTap::dropped() const {
    return reader->queue->dropped();
}

unsigned long WireTap::malformed() const {
    std::lock_guard<std::mutex> lock(reader->mutex);
    return reader->malformedCount;
}

void WireTap::close() {
    std::shared_ptr<zmq::socket_t> ours;
    {
        std::lock_guard<std::mutex> lock(reader->mutex);
        ours.swap(reader->socket);
    }
    if (!ours) {
        return;
    }
    std::weak_ptr<orlo::dabo::krin::detail::EventsHandler> handler = reader;
    reader->runtime->unregisterSubscriber(ours, handler);
    std::unique_lock<std::mutex> lock(reader->mutex);
    // Interrupted, the caller has only a moment left: the confirmation is not worth waiting for.
    reader->changed.wait_for(lock, reader->interrupted ? std::chrono::milliseconds(20) : std::chrono::milliseconds(5000),
                             [&] { return reader->unregistered; });
}

}  // namespace lumotypes::host
