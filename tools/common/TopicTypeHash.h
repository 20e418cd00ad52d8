#pragma once

#include <cstdint>
#include <string>

#include "dabo/krin/detail/ps/topicTraits.h"
#include "tools/common/Topics.h"

namespace lumo::tools {

/// The constant that the plug-in's publishers put in the header of `topic`'s
/// samples; 0 for a name that is not a topic.
inline std::uint32_t typeHashOf(const std::string& topic) {
    std::uint32_t hash = 0;
    withTopic(topic, [&](auto tag) {
        using T = typename decltype(tag)::type;
        hash = orlo::dabo::krin::detail::ps::TopicTraits<T>::dataEntityTypeHash;
    });
    return hash;
}

}  // namespace lumo::tools
