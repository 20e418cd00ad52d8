#include "RuntimeObject.h"

#include <algorithm>

#include "dabo/DaboException.h"
#include "lumotypes/host/Runtime.h"
#include "HostAccess.h"

namespace lumotypes::python {

namespace {

std::mutex& trackedMutex() {
    static std::mutex mutex;
    return mutex;
}

std::vector<std::weak_ptr<Endpoint>>& tracked() {
    static auto* endpoints = new std::vector<std::weak_ptr<Endpoint>>();
    return *endpoints;
}

void closeAll(std::vector<std::weak_ptr<Endpoint>> endpoints) {
    for (const auto& weak : endpoints) {
        if (auto endpoint = weak.lock()) {
            endpoint->close();
        }
    }
}

}  // namespace

std::map<PyObject*, TopicEndpoints>& topicClasses() {
    static auto* classes = new std::map<PyObject*, TopicEndpoints>();
    return *classes;
}

void trackEndpoint(const std::shared_ptr<Endpoint>& endpoint) {
    std::lock_guard<std::mutex> lock(trackedMutex());
    auto& endpoints = tracked();
    endpoints.erase(std::remove_if(endpoints.begin(), endpoints.end(),
                                   [](const std::weak_ptr<Endpoint>& weak) { return weak.expired(); }),
                    endpoints.end());
    endpoints.push_back(endpoint);
}

void closeEveryEndpoint() {
    std::vector<std::weak_ptr<Endpoint>> endpoints;
    {
        std::lock_guard<std::mutex> lock(trackedMutex());
        endpoints.swap(tracked());
    }
    closeAll(std::move(endpoints));
}

RuntimeObject::RuntimeObject(const Properties& properties) : runtimeProperties(properties) {
    plugin();  // a plug-in that does not load fails here, before a thread is started
    withoutGil([&] { runtime = host::createRuntime(properties); });
}

RuntimeObject::~RuntimeObject() {
    withoutGil([&] { runtime.reset(); });
}

const TopicEndpoints& RuntimeObject::endpointsOf(py::handle topic) const {
    const auto found = topicClasses().find(topic.ptr());
    if (found == topicClasses().end()) {
        throw py::type_error("expected a topic class of lumotypes_krin, got " + std::string(py::repr(topic)));
    }
    return found->second;
}

std::pair<host::Runtime, Properties> RuntimeObject::forEndpoint(const Properties& properties) const {
    std::lock_guard<std::mutex> lock(mutex);
    if (!runtime) {
        throw orlo::dabo::IllegalStateException("the runtime is closed");
    }
    Properties merged = properties;
    merged.insert(runtimeProperties.begin(), runtimeProperties.end());
    return {runtime, merged};
}

template <typename E>
std::shared_ptr<E> RuntimeObject::keep(std::shared_ptr<E> endpoint) {
    trackEndpoint(endpoint);
    std::lock_guard<std::mutex> lock(mutex);
    endpoints.push_back(endpoint);
    return endpoint;
}

std::shared_ptr<PublisherEndpoint> RuntimeObject::publisher(const std::string& uri, py::handle topic,
                                                            const Properties& properties) {
    const auto& make = endpointsOf(topic);
    const auto [on, merged] = forEndpoint(properties);
    return keep(make.publisher(uri, topic, merged, on));
}

std::shared_ptr<SubscriberEndpoint> RuntimeObject::subscriber(const std::string& uri, py::handle topic,
                                                              const Properties& properties) {
    const auto& make = endpointsOf(topic);
    const auto [on, merged] = forEndpoint(properties);
    return keep(make.subscriber(uri, topic, merged, on));
}

std::shared_ptr<MrvSubscriberEndpoint> RuntimeObject::mrvSubscriber(const std::string& uri, py::handle topic,
                                                                    const Properties& properties) {
    const auto& make = endpointsOf(topic);
    const auto [on, merged] = forEndpoint(properties);
    return keep(make.mrvSubscriber(uri, topic, merged, on));
}

void RuntimeObject::close() {
    std::vector<std::weak_ptr<Endpoint>> made;
    host::Runtime released;
    {
        std::lock_guard<std::mutex> lock(mutex);
        made.swap(endpoints);
        released.swap(runtime);
    }
    withoutGil([&] {
        closeAll(std::move(made));
        released.reset();
    });
}

bool RuntimeObject::closed() const {
    std::lock_guard<std::mutex> lock(mutex);
    return !runtime;
}

}  // namespace lumotypes::python
