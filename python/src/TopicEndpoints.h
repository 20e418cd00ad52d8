#pragma once

// The endpoints of topic `T`: the plug-in's publisher and subscribers behind
// the Python-facing interfaces of Endpoints.h.

#include <pybind11/pybind11.h>

#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "Endpoints.h"
#include "HostAccess.h"
#include "Sample.h"
#include "TopicClass.h"
#include "dabo/ps/DataEventFilter.h"

namespace lumotypes::python {

/// A Python function that C++ code calls: the GIL is taken only for the call.
class PythonCallback {
public:
    explicit PythonCallback(py::object function) : function(std::make_shared<SharedObject>(std::move(function))) {}

    /// Calls the function with a sample of `entity`; returns the text of what
    /// it raised, empty if nothing. Nothing is called once the interpreter is stopping.
    template <typename T>
    std::string operator()(const std::shared_ptr<T>& entity) const {
        if (interpreterStopping().load()) {
            return {};
        }
        // Held until the GIL is released again: the interpreter may not begin
        // to end while this thread is in it.
        const PythonEntry entry;
        if (!entry) {
            return {};
        }
        py::gil_scoped_acquire gil;
        try {
            function->get()(sampleObject<T>(entity));
        } catch (py::error_already_set& error) {
            return error.what();
        } catch (const std::exception& error) {
            return error.what();
        }
        return {};
    }

private:
    std::shared_ptr<SharedObject> function;
};

template <typename T>
class TopicPublisher : public PublisherEndpoint {
public:
    TopicPublisher(const std::string& uri, py::handle topic, const Properties& properties,
                   const host::Runtime& runtime)
        : PublisherEndpoint(uri, topic) {
        withoutGil([&] { publisher = plugin().publisher<T>(uri, properties, runtime); });
    }
    ~TopicPublisher() override {
        withoutGil([&] { publisher.reset(); });
    }

    void publish(py::handle sample, std::chrono::milliseconds timeout) override {
        if (!py::isinstance<Sample<T>>(sample)) {
            throw py::type_error(std::string("a publisher of ") + host::TopicTraits<T>::name + " publishes a " +
                                 host::TopicTraits<T>::name + ", not a " + typeName(sample));
        }
        const std::shared_ptr<T> entity = sample.cast<Sample<T>&>().entity;
        withoutGil([&] { whileInUse([&] { publisher->publish(*entity, timeout); }); });
    }

    void closeObject() override { publisher->close(); }

private:
    std::unique_ptr<orlo::dabo::ps::Publisher<T>> publisher;
};

template <typename T>
class TopicListener : public ListenerHandle {
public:
    explicit TopicListener(std::unique_ptr<orlo::dabo::ps::Subscription> subscription)
        : subscription(std::move(subscription)) {}
    ~TopicListener() override {
        withoutGil([&] { close(); });
    }

    void close() override {
        std::lock_guard<std::mutex> lock(mutex);
        if (subscription) {
            subscription->close();
            subscription.reset();
        }
    }

private:
    std::mutex mutex;
    std::unique_ptr<orlo::dabo::ps::Subscription> subscription;
};

template <typename T>
class TopicSubscriber : public SubscriberEndpoint {
public:
    using Events = std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<T>>>;

    TopicSubscriber(const std::string& uri, py::handle topic, const Properties& properties,
                    const host::Runtime& runtime)
        : SubscriberEndpoint(uri, topic) {
        withoutGil([&] { subscriber = plugin().subscriber<T>(uri, properties, runtime); });
    }
    ~TopicSubscriber() override {
        withoutGil([&] {
            closeListeners();
            subscriber.reset();
        });
    }

    py::list read(unsigned long max, const Timeout& timeout) override {
        Events events;
        waitInSlices(timeout, [&](std::chrono::milliseconds slice) {
            subscriber->readDataEvents(anything, events, 1, slice);
            if (events.empty()) {
                return false;
            }
            if (max != 1) {
                subscriber->readDataEvents(anything, events, max == 0 ? 0 : max - 1, std::chrono::milliseconds(0));
            }
            return true;
        });
        py::list samples;
        for (const auto& event : events) {
            if (event->hasValidData()) {
                samples.append(sampleObject<T>(event->getData()));
            }
        }
        return samples;
    }

    unsigned long poll(py::object callback, unsigned long max, const Timeout& timeout) override {
        PythonCallback call(std::move(callback));
        auto failure = std::make_shared<std::string>();
        std::unique_ptr<orlo::dabo::ps::Subscription> registration;
        withoutGil([&] {
            registration = subscriber->subscribe(
                anything, [call, failure](orlo::dabo::ps::Subscriber<T>&, const orlo::dabo::ps::DataEvent<T>& event) {
                    if (failure->empty() && event.hasValidData()) {
                        *failure = call(event.getData());
                    }
                });
        });
        unsigned long served = 0;
        try {
            waitInSlices(timeout, [&](std::chrono::milliseconds slice) {
                served += subscriber->poll(max == 0 ? 0 : max - served, slice);
                return (max != 0 && served >= max) || !failure->empty();
            });
        } catch (...) {
            withoutGil([&] { registration->close(); });
            throw;
        }
        withoutGil([&] { registration->close(); });
        if (!failure->empty()) {
            throw std::runtime_error("the poll callback raised " + *failure);
        }
        return served;
    }

    std::shared_ptr<ListenerHandle> listen(py::object callback) override {
        PythonCallback call(std::move(callback));
        std::shared_ptr<TopicListener<T>> listener;
        withoutGil([&] {
            auto subscription = subscriber->subscribeAsync(
                anything, [call](orlo::dabo::ps::Subscriber<T>&, const orlo::dabo::ps::DataEvent<T>& event) {
                    if (!event.hasValidData()) {
                        return;
                    }
                    const std::string failure = call(event.getData());
                    if (!failure.empty()) {
                        // Reported as the engine reports any failing listener.
                        throw std::runtime_error(failure);
                    }
                });
            listener = std::make_shared<TopicListener<T>>(std::move(subscription));
        });
        std::lock_guard<std::mutex> lock(listenersMutex);
        listeners.push_back(listener);
        return listener;
    }

    void closeObject() override {
        closeListeners();
        subscriber->close();
    }

private:
    void closeListeners() {
        std::vector<std::shared_ptr<TopicListener<T>>> open;
        {
            std::lock_guard<std::mutex> lock(listenersMutex);
            open.swap(listeners);
        }
        for (const auto& listener : open) {
            listener->close();
        }
    }

    const orlo::dabo::ps::DataEventFilter<T> anything;
    std::unique_ptr<orlo::dabo::ps::Subscriber<T>> subscriber;
    std::mutex listenersMutex;
    std::vector<std::shared_ptr<TopicListener<T>>> listeners;
};

template <typename T>
class TopicMrvSubscriber : public MrvSubscriberEndpoint {
public:
    TopicMrvSubscriber(const std::string& uri, py::handle topic, const Properties& properties,
                       const host::Runtime& runtime)
        : MrvSubscriberEndpoint(uri, topic) {
        withoutGil([&] { subscriber = plugin().mrvSubscriber<T>(uri, properties, runtime); });
    }
    ~TopicMrvSubscriber() override {
        withoutGil([&] { subscriber.reset(); });
    }

    py::list readMostRecent(std::chrono::milliseconds timeout) override {
        std::vector<std::shared_ptr<T>> held;
        waitInSlices(timeout, [&](std::chrono::milliseconds slice) {
            held = subscriber->readMostRecent(slice);
            return false;
        });
        py::list samples;
        for (const auto& entity : held) {
            samples.append(sampleObject<T>(entity));
        }
        return samples;
    }

    void closeObject() override { subscriber->close(); }

private:
    std::unique_ptr<orlo::dabo::ps::MrvSubscriber<T>> subscriber;
};

template <typename T>
TopicEndpoints topicEndpoints() {
    TopicEndpoints endpoints;
    endpoints.publisher = [](const std::string& uri, py::handle topic, const Properties& properties,
                             const host::Runtime& runtime) -> std::shared_ptr<PublisherEndpoint> {
        return std::make_shared<TopicPublisher<T>>(uri, topic, properties, runtime);
    };
    endpoints.subscriber = [](const std::string& uri, py::handle topic, const Properties& properties,
                              const host::Runtime& runtime) -> std::shared_ptr<SubscriberEndpoint> {
        return std::make_shared<TopicSubscriber<T>>(uri, topic, properties, runtime);
    };
    endpoints.mrvSubscriber = [](const std::string& uri, py::handle topic, const Properties& properties,
                                 const host::Runtime& runtime) -> std::shared_ptr<MrvSubscriberEndpoint> {
        return std::make_shared<TopicMrvSubscriber<T>>(uri, topic, properties, runtime);
    };
    return endpoints;
}

}  // namespace lumotypes::python
