#pragma once

#include <pybind11/pybind11.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Endpoints.h"

namespace lumotypes::python {

/// The topic classes by their Python type, with what makes their endpoints.
std::map<PyObject*, TopicEndpoints>& topicClasses();

/// A Python Runtime: one transport runtime (a ZeroMQ context and an event
/// thread) and everything made on it. Closing it closes them all; Python
/// objects that outlive it then raise when used, and never crash.
class RuntimeObject {
public:
    explicit RuntimeObject(const Properties& properties);
    ~RuntimeObject();

    std::shared_ptr<PublisherEndpoint> publisher(const std::string& uri, py::handle topic,
                                                 const Properties& properties);
    std::shared_ptr<SubscriberEndpoint> subscriber(const std::string& uri, py::handle topic,
                                                   const Properties& properties);
    std::shared_ptr<MrvSubscriberEndpoint> mrvSubscriber(const std::string& uri, py::handle topic,
                                                         const Properties& properties);
    /// Closes every endpoint made here and lets go of the runtime; called with the GIL.
    void close();
    bool closed() const;
    const Properties& properties() const { return runtimeProperties; }

private:
    const TopicEndpoints& endpointsOf(py::handle topic) const;
    /// The runtime and the properties of an endpoint: the runtime's, then the endpoint's own.
    std::pair<host::Runtime, Properties> forEndpoint(const Properties& properties) const;
    template <typename E>
    std::shared_ptr<E> keep(std::shared_ptr<E> endpoint);

    Properties runtimeProperties;
    mutable std::mutex mutex;
    host::Runtime runtime;
    std::vector<std::weak_ptr<Endpoint>> endpoints;
};

}  // namespace lumotypes::python
