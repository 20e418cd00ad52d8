#pragma once

// What a host needs to go from a topic's name to its typed factories: the
// factory signatures, a dispatch from the name to a template instantiated for
// every topic of the package, and an entity's bytes through the binding's own
// byte operations.

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/ps/KrinDataEntity.h"
#include "dabo/ps/MrvSubscriber.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"
#include "lumotypes/Lumotypes.h"
#include "tools/loader/PluginLoader.h"

namespace lumo::tools {

using QoSList = std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>;
using Runtime = std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>;

template <typename T>
using PublisherFactory = orlo::dabo::ps::Publisher<T>*(const std::string&, const QoSList&,
                                                        const orlo::dabo::Dabo::Properties&, const Runtime&);
template <typename T>
using SubscriberFactory = orlo::dabo::ps::Subscriber<T>*(const std::string&, const QoSList&,
                                                          const orlo::dabo::Dabo::Properties&, const Runtime&);
template <typename T>
using MrvSubscriberFactory = orlo::dabo::ps::MrvSubscriber<T>*(const std::string&, const QoSList&,
                                                                const orlo::dabo::Dabo::Properties&, const Runtime&);

/// The topic type's name, as the factories and the schema spell it.
template <typename T>
struct TopicName;
#define LUMO_TOOLS_TOPIC_NAME(Name)                       \
    template <>                                           \
    struct TopicName<::lumotypes::Name> {                 \
        static constexpr const char* value = #Name;       \
    };
LUMOTYPES_FOR_EACH_TOPIC(LUMO_TOOLS_TOPIC_NAME)
#undef LUMO_TOOLS_TOPIC_NAME

/// The names of all topics of the package, in schema order.
inline std::vector<std::string> topicNames() {
    std::vector<std::string> names;
#define LUMO_TOOLS_TOPIC_LIST(Name) names.push_back(#Name);
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_TOOLS_TOPIC_LIST)
#undef LUMO_TOOLS_TOPIC_LIST
    return names;
}

/// Stands for topic type `T` in a generic lambda: `[](auto tag) { using T = typename decltype(tag)::type; }`.
template <typename T>
struct TopicTag {
    using type = T;
};

/// Calls `visit(TopicTag<T>{})` for the topic type named `topic`; false if the
/// package has no such topic.
template <typename Visitor>
bool withTopic(const std::string& topic, Visitor&& visit) {
#define LUMO_TOOLS_DISPATCH(Name)                         \
    if (topic == #Name) {                                 \
        visit(TopicTag<::lumotypes::Name>{});             \
        return true;                                      \
    }
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_TOOLS_DISPATCH)
#undef LUMO_TOOLS_DISPATCH
    return false;
}

template <typename T>
std::unique_ptr<orlo::dabo::ps::Publisher<T>> makePublisher(const PluginLoader& plugin, const std::string& uri,
                                                            const orlo::dabo::Dabo::Properties& properties,
                                                            const Runtime& runtime) {
    auto* factory = plugin.factory<PublisherFactory<T>>("Publisher", TopicName<T>::value);
    return std::unique_ptr<orlo::dabo::ps::Publisher<T>>(factory(uri, {}, properties, runtime));
}

template <typename T>
std::unique_ptr<orlo::dabo::ps::Subscriber<T>> makeSubscriber(const PluginLoader& plugin, const std::string& uri,
                                                              const orlo::dabo::Dabo::Properties& properties,
                                                              const Runtime& runtime) {
    auto* factory = plugin.factory<SubscriberFactory<T>>("Subscriber", TopicName<T>::value);
    return std::unique_ptr<orlo::dabo::ps::Subscriber<T>>(factory(uri, {}, properties, runtime));
}

template <typename T>
std::unique_ptr<orlo::dabo::ps::MrvSubscriber<T>> makeMrvSubscriber(const PluginLoader& plugin,
                                                                    const std::string& uri,
                                                                    const orlo::dabo::Dabo::Properties& properties,
                                                                    const Runtime& runtime) {
    auto* factory = plugin.factory<MrvSubscriberFactory<T>>("MrvSubscriber", TopicName<T>::value);
    return std::unique_ptr<orlo::dabo::ps::MrvSubscriber<T>>(factory(uri, {}, properties, runtime));
}

/// The byte operations of a plug-in entity; throws if `entity` was not made by the plug-in.
template <typename T>
orlo::dabo::krin::detail::ps::KrinDataEntity<T>& bytesOf(T& entity) {
    auto* bytes = dynamic_cast<orlo::dabo::krin::detail::ps::KrinDataEntity<T>*>(&entity);
    if (bytes == nullptr) {
        throw std::logic_error(std::string("entity of ") + TopicName<T>::value + " has no byte operations");
    }
    return *bytes;
}

/// The payload bytes of `entity`, as the publish path would send them.
template <typename T>
std::string toBytes(const T& entity) {
    std::string bytes;
    if (!bytesOf(const_cast<T&>(entity)).toByteArray(bytes)) {
        throw std::runtime_error(std::string("entity of ") + TopicName<T>::value + " does not serialise");
    }
    return bytes;
}

/// Replaces the content of `entity` by the payload `bytes`; false if the binding refuses them.
template <typename T>
bool fromBytes(T& entity, const std::string& bytes) {
    return bytesOf(entity).fromByteArray(bytes);
}

}  // namespace lumo::tools
