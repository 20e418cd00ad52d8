#pragma once

// The plug-in as a host sees it in the security tests: loaded with dlopen
// through the host component, every transport factory of every topic
// reachable by topic type. The topic's name is the callers' label only.

#include <memory>
#include <string>

#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"

namespace lumo::security {

using lumotypes::host::QoSList;
using lumotypes::host::Runtime;

inline const lumotypes::host::Plugin& plugin() {
    static const lumotypes::host::Plugin loaded(LUMOTYPES_KRIN_PLUGIN_PATH);
    return loaded;
}

template <typename T>
std::unique_ptr<orlo::dabo::ps::Publisher<T>> publisherOf(const std::string&, const std::string& uri,
                                                          const orlo::dabo::Dabo::Properties& properties,
                                                          const Runtime& dabo) {
    return plugin().publisher<T>(uri, properties, dabo);
}

template <typename T>
std::unique_ptr<orlo::dabo::ps::Subscriber<T>> subscriberOf(const std::string&, const std::string& uri,
                                                            const orlo::dabo::Dabo::Properties& properties,
                                                            const Runtime& dabo) {
    return plugin().subscriber<T>(uri, properties, dabo);
}

template <typename T>
std::unique_ptr<orlo::dabo::ps::MrvSubscriber<T>> mrvSubscriberOf(const std::string&, const std::string& uri,
                                                                  const orlo::dabo::Dabo::Properties& properties,
                                                                  const Runtime& dabo) {
    return plugin().mrvSubscriber<T>(uri, properties, dabo);
}

}  // namespace lumo::security
