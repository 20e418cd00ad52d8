#pragma once

// Publishers and subscribers as Python sees them: one class of each kind for
// every topic, over the typed objects of the plug-in. Each call that can wait
// (on the network, the runtime's thread or a listener in progress) runs
// without the GIL.

#include <pybind11/pybind11.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

#include "Threads.h"
#include "lumotypes/host/Factories.h"

namespace lumotypes::python {

namespace py = pybind11;
using Timeout = std::optional<std::chrono::milliseconds>;

/// What every publisher and subscriber can do: be closed, once, from any
/// thread. Its objects go away without the GIL, since going away can wait
/// for the runtime's thread, which may be waiting for the GIL.
class Endpoint {
public:
    /// `topic` is a topic class, which lives as long as the module.
    Endpoint(std::string uri, py::handle topic) : endpointUri(std::move(uri)), topicClass(topic) {}
    virtual ~Endpoint() = default;
    /// Closes the plug-in's object, the first time only; called without the GIL.
    /// Waits for the calls in progress on other threads (see `whileInUse`).
    void close() {
        std::unique_lock<std::shared_mutex> lock(useMutex);
        if (!isClosed) {
            isClosed = true;
            closeObject();
        }
    }

    const std::string& uri() const { return endpointUri; }
    py::handle topic() const { return topicClass; }

protected:
    virtual void closeObject() = 0;

    /// Runs a call on the plug-in's object that must not meet its closing on
    /// another thread (a publisher's socket is not shared between threads):
    /// a Python thread that publishes while the interpreter ends and closes
    /// everything. Called without the GIL.
    template <typename Call>
    void whileInUse(Call&& call) {
        std::shared_lock<std::shared_mutex> lock(useMutex);
        call();
    }

private:
    std::shared_mutex useMutex;
    bool isClosed = false;
    std::string endpointUri;
    py::handle topicClass;
};

class PublisherEndpoint : public Endpoint {
public:
    using Endpoint::Endpoint;
    virtual void publish(py::handle sample, std::chrono::milliseconds timeout) = 0;
};

/// A registration of a Python function as a listener; closing it ends the
/// registration and waits for a call in progress.
class ListenerHandle {
public:
    virtual ~ListenerHandle() = default;
    virtual void close() = 0;
};

class SubscriberEndpoint : public Endpoint {
public:
    using Endpoint::Endpoint;
    /// Waits up to `timeout` for a first sample, then takes up to `max` (0: all) queued ones.
    virtual py::list read(unsigned long max, const Timeout& timeout) = 0;
    /// Calls `callback(sample)` on this thread for up to `max` samples (0: any
    /// number) that arrive within `timeout`; returns how many it called it for.
    virtual unsigned long poll(py::object callback, unsigned long max, const Timeout& timeout) = 0;
    /// Calls `callback(sample)` on the runtime's thread for every sample from now on.
    virtual std::shared_ptr<ListenerHandle> listen(py::object callback) = 0;
};

class MrvSubscriberEndpoint : public Endpoint {
public:
    using Endpoint::Endpoint;
    /// The most recent sample of each instance after `timeout`.
    virtual py::list readMostRecent(std::chrono::milliseconds timeout) = 0;
};

using Properties = orlo::dabo::Dabo::Properties;

/// Makes the endpoints of one topic; called with the GIL, they wait for the
/// runtime without it.
struct TopicEndpoints {
    std::shared_ptr<PublisherEndpoint> (*publisher)(const std::string& uri, py::handle topic,
                                                    const Properties& properties, const host::Runtime& runtime);
    std::shared_ptr<SubscriberEndpoint> (*subscriber)(const std::string& uri, py::handle topic,
                                                      const Properties& properties, const host::Runtime& runtime);
    std::shared_ptr<MrvSubscriberEndpoint> (*mrvSubscriber)(const std::string& uri, py::handle topic,
                                                            const Properties& properties,
                                                            const host::Runtime& runtime);
};

/// Every endpoint of the process that is still open, for the interpreter's exit.
void trackEndpoint(const std::shared_ptr<Endpoint>& endpoint);
/// Closes every tracked endpoint; called without the GIL.
void closeEveryEndpoint();

}  // namespace lumotypes::python

