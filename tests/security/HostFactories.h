#pragma once

// The plug-in as a host sees it in the security tests: loaded with dlopen,
// every transport factory of every topic reachable by kind and topic name.

#include <memory>
#include <string>
#include <vector>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/ps/MrvSubscriber.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"
#include "lumotypes/Lumotypes.h"
#include "tools/loader/PluginLoader.h"

namespace lumo::security {

using QoSList = std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>;
using Runtime = std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>;

template <template <typename> class Kind, typename T>
using Factory = Kind<T>*(const std::string&, const QoSList&, const orlo::dabo::Dabo::Properties&, const Runtime&);

inline lumo::tools::PluginLoader& plugin() {
    static lumo::tools::PluginLoader loaded(LUMOTYPES_KRIN_PLUGIN_PATH);
    return loaded;
}

template <typename T>
std::unique_ptr<orlo::dabo::ps::Publisher<T>> publisherOf(const std::string& topic, const std::string& uri,
                                                          const orlo::dabo::Dabo::Properties& properties,
                                                          const Runtime& dabo) {
    auto* factory = plugin().factory<Factory<orlo::dabo::ps::Publisher, T>>("Publisher", topic);
    return std::unique_ptr<orlo::dabo::ps::Publisher<T>>(factory(uri, {}, properties, dabo));
}

template <typename T>
std::unique_ptr<orlo::dabo::ps::Subscriber<T>> subscriberOf(const std::string& topic, const std::string& uri,
                                                            const orlo::dabo::Dabo::Properties& properties,
                                                            const Runtime& dabo) {
    auto* factory = plugin().factory<Factory<orlo::dabo::ps::Subscriber, T>>("Subscriber", topic);
    return std::unique_ptr<orlo::dabo::ps::Subscriber<T>>(factory(uri, {}, properties, dabo));
}

template <typename T>
std::unique_ptr<orlo::dabo::ps::MrvSubscriber<T>> mrvSubscriberOf(const std::string& topic, const std::string& uri,
                                                                  const orlo::dabo::Dabo::Properties& properties,
                                                                  const Runtime& dabo) {
    auto* factory = plugin().factory<Factory<orlo::dabo::ps::MrvSubscriber, T>>("MrvSubscriber", topic);
    return std::unique_ptr<orlo::dabo::ps::MrvSubscriber<T>>(factory(uri, {}, properties, dabo));
}

}  // namespace lumo::security
