#pragma once

#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include "lumotypes/host/Export.h"
#include "lumotypes/host/Factories.h"
#include "lumotypes/host/Topics.h"

namespace google::protobuf {
class Descriptor;
class FileDescriptor;
}  // namespace google::protobuf

namespace lumotypes::host {

/// A plug-in that could not be loaded, or lacks a function it must export.
class LUMOTYPES_HOST_EXPORT PluginLoadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~PluginLoadError() override;
};

/// The type-support plug-in, loaded into the host process with dlopen, and
/// typed access to every factory it exports.
///
/// The plug-in stays loaded until the process ends, whatever happens to this
/// object: its schema registers with the message library's descriptor pool
/// when it is loaded, and entities it made may outlive the Plugin.
class LUMOTYPES_HOST_EXPORT Plugin {
public:
    /// Loads the plug-in at `path` and finds all its factories and its
    /// descriptor table at once; throws `PluginLoadError` naming the file and
    /// the system's reason, or the first missing symbol.
    explicit Plugin(const std::string& path = Plugin::defaultPath());

    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    /// The plug-in installed beside this library if there is one, otherwise
    /// the plug-in of the build tree the library was built in.
    static std::string defaultPath();

    const std::string& path() const { return libraryPath; }

    /// A new publisher of topic `T` on `uri`; throws what the factory throws.
    template <typename T>
    std::unique_ptr<orlo::dabo::ps::Publisher<T>> publisher(const std::string& uri,
                                                            const orlo::dabo::Dabo::Properties& properties,
                                                            const Runtime& runtime, const QoSList& qos = {}) const {
        auto* make = factory<PublisherFactory<T>>(TopicTraits<T>::publisherFactory);
        return std::unique_ptr<orlo::dabo::ps::Publisher<T>>(make(uri, qos, properties, runtime));
    }

    /// A new queued subscriber of topic `T` on `uri`.
    template <typename T>
    std::unique_ptr<orlo::dabo::ps::Subscriber<T>> subscriber(const std::string& uri,
                                                              const orlo::dabo::Dabo::Properties& properties,
                                                              const Runtime& runtime, const QoSList& qos = {}) const {
        auto* make = factory<SubscriberFactory<T>>(TopicTraits<T>::subscriberFactory);
        return std::unique_ptr<orlo::dabo::ps::Subscriber<T>>(make(uri, qos, properties, runtime));
    }

    /// A new most-recent-value subscriber of topic `T` on `uri`.
    template <typename T>
    std::unique_ptr<orlo::dabo::ps::MrvSubscriber<T>> mrvSubscriber(const std::string& uri,
                                                                    const orlo::dabo::Dabo::Properties& properties,
                                                                    const Runtime& runtime,
                                                                    const QoSList& qos = {}) const {
        auto* make = factory<MrvSubscriberFactory<T>>(TopicTraits<T>::mrvSubscriberFactory);
        return std::unique_ptr<orlo::dabo::ps::MrvSubscriber<T>>(make(uri, qos, properties, runtime));
    }

    /// A new, empty entity of topic `T`, made by the plug-in's binding.
    template <typename T>
    std::unique_ptr<T> createDataEntity() const {
        auto* make = factory<DataEntityFactory<T>>(TopicTraits<T>::dataEntityFactory);
        return std::unique_ptr<T>(static_cast<T*>(make()));
    }

    /// The exported function `name`, as a function of type `F`; throws
    /// `PluginLoadError` for a name the plug-in was not checked for.
    template <typename F>
    F* factory(const std::string& name) const {
        return reinterpret_cast<F*>(symbol(name));
    }

    /// The wire schema, through the descriptor table the plug-in exports.
    const google::protobuf::FileDescriptor& schema() const;

    /// The wire message type of `topic`; throws `std::invalid_argument` for a
    /// name that is not a topic of the schema.
    const google::protobuf::Descriptor& messageType(const std::string& topic) const;

private:
    void* symbol(const std::string& name) const;

    std::string libraryPath;
    std::map<std::string, void*> symbols;
    const google::protobuf::FileDescriptor* file = nullptr;
};

}  // namespace lumotypes::host
