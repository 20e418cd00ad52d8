#pragma once

#include "FreePort.h"

// Helpers shared by the runtime's tests: a handler that records what the
// runtime tells it, free TCP ports, and message frames.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <random>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>
#include <zmq.hpp>

#include "dabo/krin/detail/EventsHandler.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"

namespace lumo::test {

using orlo::dabo::krin::detail::EventsHandler;
using orlo::dabo::krin::detail::KrinDaboEvent;

using Message = std::vector<std::string>;

/// The topic frame of the topic path `topic`: what a subscriber subscribes to.
inline std::string frameOf(const std::string& topic) {
    return orlo::dabo::krin::detail::createFrame0(
        static_cast<unsigned int>(orlo::dabo::util::topicNameHash(topic)));
}

/// Generous bound for waits on the runtime; reached only when a test fails.
constexpr std::chrono::seconds patience{20};

/// Records every event with the thread it came on; on POLLER_READABLE it
/// reads one whole message from the socket, as a subscriber does.
class RecordingHandler : public EventsHandler {
public:
    struct Record {
        KrinDaboEvent event;
        std::thread::id thread;
    };

    bool events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) override {
        Message message;
        if (event == orlo::dabo::krin::detail::POLLER_READABLE) {
            do {
                zmq::message_t frame;
                if (!socket->recv(frame, zmq::recv_flags::dontwait)) {
                    break;
                }
                message.push_back(frame.to_string());
            } while (socket->get(zmq::sockopt::rcvmore));
        }
        if (onEvent) {
            onEvent(event);
        }
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (event == orlo::dabo::krin::detail::REGISTERED) {
                registeredSocket = socket;
            }
            records.push_back({event, std::this_thread::get_id()});
            if (event == orlo::dabo::krin::detail::POLLER_READABLE) {
                received.push_back(std::move(message));
            }
        }
        changed.notify_all();
        return true;
    }

    /// Waits until `event` has been recorded; false after `patience`.
    bool waitFor(KrinDaboEvent event) {
        return waitUntil([&] { return countLocked(event) > 0; });
    }

    /// Waits until `event` has been recorded `times` times.
    bool waitFor(KrinDaboEvent event, std::size_t times) {
        return waitUntil([&] { return countLocked(event) >= times; });
    }

    /// Waits until at least `count` messages have been received.
    bool waitForMessages(std::size_t count) {
        return waitUntil([&] { return received.size() >= count; });
    }

    /// Waits until `condition` holds; it runs with the handler's lock held,
    /// so it must not call the other members.
    bool waitUntil(const std::function<bool()>& condition) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, patience, condition);
    }

    std::size_t count(KrinDaboEvent event) {
        std::lock_guard<std::mutex> lock(mutex);
        return countLocked(event);
    }

    std::vector<KrinDaboEvent> sequence() {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<KrinDaboEvent> events;
        for (const Record& record : records) {
            events.push_back(record.event);
        }
        return events;
    }

    std::vector<Record> history() {
        std::lock_guard<std::mutex> lock(mutex);
        return records;
    }

    std::vector<Message> messages() {
        std::lock_guard<std::mutex> lock(mutex);
        return received;
    }

    std::shared_ptr<zmq::socket_t> socket() {
        std::lock_guard<std::mutex> lock(mutex);
        return registeredSocket;
    }

    /// Runs on the runtime's thread at every event, before it is recorded.
    std::function<void(KrinDaboEvent)> onEvent;

private:
    std::size_t countLocked(KrinDaboEvent event) const {
        std::size_t n = 0;
        for (const Record& record : records) {
            n += record.event == event ? 1 : 0;
        }
        return n;
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Record> records;
    std::vector<Message> received;
    std::shared_ptr<zmq::socket_t> registeredSocket;
};

/// The subscriptions an endpoint has seen, less its unsubscriptions, as the
/// runtime's subscription hook reports them; a test waits on the count before
/// it publishes. Declare it before the runtime whose hook it is, so that it
/// outlives that runtime.
class SubscriptionCount {
public:
    /// For KrinDaboTestHooks::subscriptionObserver.
    std::function<void(const std::string&, bool, const std::string&)> observer() {
        return [this](const std::string&, bool subscribed, const std::string&) {
            std::lock_guard<std::mutex> lock(mutex);
            count += subscribed ? 1 : -1;
            changed.notify_all();
        };
    }

    /// Waits until the count is at least `atLeast`; false after `patience`.
    bool waitFor(int atLeast) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, patience, [&] { return count >= atLeast; });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    int count = 0;
};

/// Waits until the runtime's thread has worked off every request made before:
/// an unregistration of nothing is answered in turn.
inline bool workedOff(orlo::dabo::krin::detail::KrinDabo& dabo) {
    auto marker = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = marker;
    std::shared_ptr<zmq::socket_t> noSocket;
    dabo.unregisterSubscriber(noSocket, handler);
    return marker->waitFor(orlo::dabo::krin::detail::UNREGISTERED);
}

/// Sends a message of several frames on a socket, waiting if need be.
inline void sendMessage(zmq::socket_t& socket, const Message& frames) {
    for (std::size_t i = 0; i < frames.size(); ++i) {
        socket.send(zmq::buffer(frames[i]), i + 1 < frames.size() ? zmq::send_flags::sndmore : zmq::send_flags::none);
    }
}

/// The three frames of a test sample: topic frame, a header naming the
/// sender and sequence number, and a payload of `payloadSize` bytes whose
/// content depends on both, so any mix-up shows.
inline Message sampleFrames(const std::string& topicFrame, const std::string& sender, unsigned int sequence,
                            std::size_t payloadSize = 1024) {
    std::string header = sender + "#" + std::to_string(sequence);
    std::string payload(payloadSize, '\0');
    for (std::size_t i = 0; i < payloadSize; ++i) {
        payload[i] = static_cast<char>((i * 31 + sequence * 7 + sender.size()) & 0xff);
    }
    return {topicFrame, header, payload};
}

}  // namespace lumo::test
