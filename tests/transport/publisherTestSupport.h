#pragma once

#include "FreePort.h"

// What the publishing side's tests share: a publisher that lets a test look
// inside and switch tracing on, a runtime with a recorder of its calls, free
// ports, dealers that fail for real, and a raw subscriber that is not part of
// the plug-in.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <zmq.hpp>

#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "dabo/krin/detail/ps/publisher.h"

namespace lumo::test {

using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboTesting;
using orlo::dabo::krin::detail::KrinDaboEvent;
using orlo::dabo::krin::detail::KrinDaboTestHooks;
using orlo::dabo::krin::detail::ps::KrinPublisher;
using orlo::dabo::krin::detail::ps::PubSubState;

/// A publisher with a window for tests: its state, its last event, its list of
/// instance publishers, its socket and its tracing switch. Nothing of the
/// publishing itself is changed.
template <typename T, typename ST>
class InspectablePublisher : public KrinPublisher<T, ST> {
public:
    using KrinPublisher<T, ST>::KrinPublisher;

    PubSubState currentState() const { return this->state; }
    KrinDaboEvent lastSeenEvent() {
        std::lock_guard<std::mutex> lock(this->eventMutex);
        return this->lastEvent;
    }
    std::size_t listedInstancePublishers() {
        std::lock_guard<std::mutex> lock(this->instanceListMutex);
        return this->instancePublishers.size();
    }
    const std::string& topicFrame() const { return this->topicIdFrame; }
    const std::string& endpoint() const { return this->registrationEndpoint; }
    std::uint32_t typeHash() const { return this->dataEntityTypeHash; }
    std::uint32_t upcomingSequence() const { return this->nextSequence; }
    bool tracing() const { return this->tracingEnabled; }
    void switchTracingOn() { this->tracingEnabled = true; }

    /// Exchanges the publisher's dealer with `other`: tests put a failing or
    /// unconnected dealer in its place and must put the original back before
    /// the publisher dies, since the runtime owns its context.
    void exchangeDealer(zmq::socket_t& other) { std::swap(*this->dealerSocket, other); }
};

/// One call that the runtime saw from a publisher or subscriber.
struct RuntimeCall {
    std::string operation;
    bool handlerEmpty;
};

/// Collects the runtime's calls, in order, from any thread.
class RuntimeCallLog {
public:
    void add(const std::string& operation, bool handlerEmpty) {
        std::lock_guard<std::mutex> lock(mutex);
        calls.push_back({operation, handlerEmpty});
    }
    std::vector<RuntimeCall> all() const {
        std::lock_guard<std::mutex> lock(mutex);
        return calls;
    }
    std::vector<RuntimeCall> of(const std::string& operation) const {
        std::vector<RuntimeCall> result;
        for (const RuntimeCall& call : all()) {
            if (call.operation == operation) {
                result.push_back(call);
            }
        }
        return result;
    }

private:
    mutable std::mutex mutex;
    std::vector<RuntimeCall> calls;
};

/// A runtime whose calls are recorded in `log`; `hooks` says how it answers.
inline std::shared_ptr<KrinDabo> recordedRuntime(const std::shared_ptr<RuntimeCallLog>& log,
                                                 KrinDaboTestHooks hooks = {}) {
    hooks.callObserver = [log](const std::string& operation, bool handlerEmpty) { log->add(operation, handlerEmpty); };
    return KrinDaboTesting::create({}, hooks);
}

/// Hooks under which registerPublisher returns only once the runtime's thread
/// has finished delivering REGISTERED. That thread holds a publisher only
/// while it delivers an event to it, so afterwards a test that drops the last
/// reference sees the destructor run on its own thread, not the runtime's.
inline KrinDaboTestHooks settledRegistration(KrinDaboTestHooks hooks = {}) {
    hooks.registeredBeforeRegisterReturns = true;
    return hooks;
}

/// A topic URI on a port of its own.
inline std::string freshTopicUri(const std::string& topic = "/lumo/publisher/test") {
    return "krin.ps://127.0.0.1:" + std::to_string(lumo::test::freePort()) + topic;
}

/// A DEALER whose every send is a hard error: its context has been shut
/// down, so ZeroMQ answers ETERM. The context is this object's own, so the
/// runtime is untouched.
class TerminatedDealer {
public:
    TerminatedDealer() : context(1), socket(context, zmq::socket_type::dealer) {
        socket.set(zmq::sockopt::linger, 0);
        context.shutdown();
    }
    zmq::socket_t& get() { return socket; }

private:
    zmq::context_t context;
    zmq::socket_t socket;
};

/// A DEALER connected to nothing: every send finds no peer (EAGAIN).
class UnconnectedDealer {
public:
    UnconnectedDealer() : context(1), socket(context, zmq::socket_type::dealer) {
        socket.set(zmq::sockopt::linger, 0);
    }
    zmq::socket_t& get() { return socket; }

private:
    zmq::context_t context;
    zmq::socket_t socket;
};

/// Puts a stand-in dealer into a publisher for the lifetime of this object.
template <typename Publisher>
class DealerExchange {
public:
    DealerExchange(Publisher& publisher, zmq::socket_t& standIn) : publisher(publisher), standIn(standIn) {
        publisher.exchangeDealer(standIn);
    }
    ~DealerExchange() { publisher.exchangeDealer(standIn); }
    DealerExchange(const DealerExchange&) = delete;
    DealerExchange& operator=(const DealerExchange&) = delete;

private:
    Publisher& publisher;
    zmq::socket_t& standIn;
};

}  // namespace lumo::test
