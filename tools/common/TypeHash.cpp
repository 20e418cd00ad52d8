#include "tools/common/TypeHash.h"

#include "dabo/krin/detail/ps/topicTraits.h"
#include "tools/common/Topics.h"

namespace lumo::tools {

std::uint32_t typeHashOf(const std::string& topic) {
    std::uint32_t hash = 0;
    withTopic(topic, [&](auto tag) {
        using T = typename decltype(tag)::type;
        hash = orlo::dabo::krin::detail::ps::TopicTraits<T>::dataEntityTypeHash;
    });
    return hash;
}

}  // namespace lumo::tools
