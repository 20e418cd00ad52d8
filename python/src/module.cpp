// The native part of the Python package lumotypes_krin: topic classes and
// enumerations made from the schema's field table, the runtime, publishers
// and subscribers, and the exceptions of the platform.

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "Endpoints.h"
#include "HostAccess.h"
#include "Logging.h"
#include "RuntimeObject.h"
#include "Threads.h"
#include "TopicClass.h"
#include "TopicEndpoints.h"
#include "dabo/DaboException.h"
#include "lumotypes/Fields.h"
#include "lumotypes/host/Topics.h"

namespace py = pybind11;
namespace lp = lumotypes::python;

namespace {

void bindExceptions(py::module_& module) {
    auto& dabo = py::register_exception<orlo::dabo::DaboException>(module, "DaboException", PyExc_RuntimeError);
    py::register_exception<orlo::dabo::IllegalStateException>(module, "IllegalStateException", dabo);
    py::register_exception<orlo::dabo::TimeoutException>(module, "TimeoutException", dabo);
    py::register_exception<lumotypes::host::PluginLoadError>(module, "PluginLoadError", PyExc_ImportError);
}

void bindTopics(py::module_& module) {
    lumotypes::host::forEachTopic([&](auto tag) {
        using T = typename decltype(tag)::type;
        lp::bindTopic<T>(module);
        lp::topicClasses().emplace(py::type::of<lp::Sample<T>>().ptr(), lp::topicEndpoints<T>());
    });
}

void bindEndpoints(py::module_& module) {
    py::class_<lp::Endpoint, std::shared_ptr<lp::Endpoint>>(module, "Endpoint")
        .def_property_readonly("uri", &lp::Endpoint::uri)
        .def_property_readonly("topic", &lp::Endpoint::topic)
        .def(
            "close", [](lp::Endpoint& endpoint) { lp::withoutGil([&] { endpoint.close(); }); },
            "Closes it; what it made stops, and later calls raise.");

    py::class_<lp::PublisherEndpoint, lp::Endpoint, std::shared_ptr<lp::PublisherEndpoint>>(module, "Publisher")
        .def(
            "publish",
            [](lp::PublisherEndpoint& publisher, py::handle sample, double timeout) {
                publisher.publish(sample, *lp::timeoutFrom(timeout, "publish"));
            },
            py::arg("sample"), py::arg("timeout") = 1.0,
            "Publishes `sample`, trying for at most `timeout` seconds when the socket refuses it.");

    py::class_<lp::ListenerHandle, std::shared_ptr<lp::ListenerHandle>>(module, "Listener")
        .def(
            "close", [](lp::ListenerHandle& listener) { lp::withoutGil([&] { listener.close(); }); },
            "Ends the registration; a call in progress finishes first.");

    py::class_<lp::SubscriberEndpoint, lp::Endpoint, std::shared_ptr<lp::SubscriberEndpoint>>(module, "Subscriber")
        .def(
            "read",
            [](lp::SubscriberEndpoint& subscriber, unsigned long max, std::optional<double> timeout) {
                return subscriber.read(max, lp::timeoutFrom(timeout, "read"));
            },
            py::arg("max") = 0, py::arg("timeout") = 0.0,
            "Waits up to `timeout` seconds (None: without end) for a first sample, then takes up to `max` "
            "(0: every) queued sample, oldest first.")
        .def(
            "poll",
            [](lp::SubscriberEndpoint& subscriber, py::object callback, unsigned long max,
               std::optional<double> timeout) {
                return subscriber.poll(std::move(callback), max, lp::timeoutFrom(timeout, "poll"));
            },
            py::arg("callback"), py::arg("max") = 0, py::arg("timeout") = 0.0,
            "Calls `callback(sample)` on this thread for the queued samples and those arriving within "
            "`timeout` seconds, at most `max` (0: any number); returns how many.")
        .def("listen", &lp::SubscriberEndpoint::listen, py::arg("callback"),
             "Calls `callback(sample)` on the runtime's thread for every sample from now on.");

    py::class_<lp::MrvSubscriberEndpoint, lp::Endpoint, std::shared_ptr<lp::MrvSubscriberEndpoint>>(
        module, "MrvSubscriber")
        .def(
            "read_most_recent",
            [](lp::MrvSubscriberEndpoint& subscriber, double timeout) {
                return subscriber.readMostRecent(*lp::timeoutFrom(timeout, "read_most_recent"));
            },
            py::arg("timeout") = 0.0, "The most recent sample of each instance, after waiting `timeout` seconds.");
}

void bindRuntime(py::module_& module) {
    using Properties = lp::Properties;
    py::class_<lp::RuntimeObject, std::shared_ptr<lp::RuntimeObject>>(module, "Runtime")
        .def(py::init<const Properties&>(), py::arg("properties") = Properties(),
             "Starts a transport runtime with these properties, also given to everything made on it.")
        .def_property_readonly("properties", &lp::RuntimeObject::properties)
        .def_property_readonly("closed", &lp::RuntimeObject::closed)
        .def("publisher", &lp::RuntimeObject::publisher, py::arg("uri"), py::arg("topic"),
             py::arg("properties") = Properties(), "A publisher of `topic` (a topic class) on `uri`.")
        .def("subscriber", &lp::RuntimeObject::subscriber, py::arg("uri"), py::arg("topic"),
             py::arg("properties") = Properties(), "A queued subscriber of `topic` on `uri`.")
        .def("mrv_subscriber", &lp::RuntimeObject::mrvSubscriber, py::arg("uri"), py::arg("topic"),
             py::arg("properties") = Properties(), "A most-recent-value subscriber of `topic` on `uri`.")
        .def("close", &lp::RuntimeObject::close, "Closes everything made on it and stops the runtime.");
}

}  // namespace

PYBIND11_MODULE(_native, module) {
    module.doc() = "Native part of lumotypes_krin; use the package instead.";
    lp::configureLogging();
    bindExceptions(module);
#define LUMOTYPES_PYTHON_ENUM(Name) lp::EnumClass<lumotypes::Name>::make(module);
    LUMOTYPES_FOR_EACH_ENUM(LUMOTYPES_PYTHON_ENUM)
#undef LUMOTYPES_PYTHON_ENUM
    bindTopics(module);
    bindEndpoints(module);
    bindRuntime(module);
    module.def(
        "load_plugin", [](const std::string& path) { return lp::plugin(path).path(); }, py::arg("path") = "",
        "Loads the plug-in (from `path`, else the default one) if it is not loaded yet; returns its path.");
    // Before the interpreter goes, no other thread may enter it any more:
    // calls under way finish first, later ones never take the GIL.
    module.def("_stop", [] {
        lp::interpreterStopping().store(true);
        py::gil_scoped_release released;
        lp::closeInterpreterGate();
        lp::closeEveryEndpoint();
    });
    py::module_::import("atexit").attr("register")(module.attr("_stop"));
}
