#pragma once

// The signatures of the functions the plug-in exports for every topic. Their
// names are in TopicTraits (lumotypes/host/Topics.h); the plug-in checks its
// own definitions against these types when it is compiled.

#include <memory>
#include <string>
#include <vector>

#include "dabo/Dabo.h"
#include "dabo/ps/MrvSubscriber.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"

namespace orlo::dabo::krin::detail {
class KrinDabo;
}  // namespace orlo::dabo::krin::detail

namespace lumotypes::host {

using QoSList = std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>;

/// The transport runtime every publisher and subscriber runs on; made by
/// createRuntime (lumotypes/host/Runtime.h). Hosts only pass it on.
using Runtime = std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>;

/// `generated_krin_Publisher_<package>_<Topic>`: a new publisher of `uri`;
/// throws the platform's DaboException for a bad URI or property.
template <typename T>
using PublisherFactory = orlo::dabo::ps::Publisher<T>*(const std::string& uri, const QoSList& qos,
                                                        const orlo::dabo::Dabo::Properties& properties,
                                                        const Runtime& runtime);

/// `generated_krin_Subscriber_<package>_<Topic>`: a new queued subscriber.
template <typename T>
using SubscriberFactory = orlo::dabo::ps::Subscriber<T>*(const std::string& uri, const QoSList& qos,
                                                          const orlo::dabo::Dabo::Properties& properties,
                                                          const Runtime& runtime);

/// `generated_krin_MrvSubscriber_<package>_<Topic>`: a new most-recent-value subscriber.
template <typename T>
using MrvSubscriberFactory = orlo::dabo::ps::MrvSubscriber<T>*(const std::string& uri, const QoSList& qos,
                                                                const orlo::dabo::Dabo::Properties& properties,
                                                                const Runtime& runtime);

/// `generated_krin_DataEntity_<package>_<Topic>`: a new, empty entity of `T`,
/// which lies at the address of its `T`; the caller owns it.
template <typename T>
using DataEntityFactory = void*();

}  // namespace lumotypes::host
