#pragma once

#include <memory>
#include <string>

#include "dabo/Dabo.h"
#include "lumotypes/host/Plugin.h"

namespace lumo::play {

/// A publisher of one topic that takes a sample as its payload bytes, so
/// that the player need not know the topic's type.
class TopicPublisher {
public:
    virtual ~TopicPublisher() = default;
    /// Fills an entity of the plug-in from `payload` and publishes it; false
    /// if the plug-in refuses the bytes.
    virtual bool publish(const std::string& payload) = 0;
    virtual void close() = 0;
};

/// Throws `std::invalid_argument` for a name that is not a topic.
std::unique_ptr<TopicPublisher> makeTopicPublisher(const lumotypes::host::Plugin& plugin, const std::string& topic,
                                                   const std::string& uri,
                                                   const orlo::dabo::Dabo::Properties& properties,
                                                   const lumotypes::host::Runtime& runtime);

}  // namespace lumo::play
