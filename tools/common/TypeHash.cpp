#include "tools/common/TypeHash.h"

#include "lumotypes/host/Topics.h"

namespace lumo::tools {

std::uint32_t typeHashOf(const std::string& topic) {
    std::uint32_t hash = 0;
    lumotypes::host::withTopic(topic, [&](auto tag) {
        using T = typename decltype(tag)::type;
        hash = lumotypes::host::TopicTraits<T>::typeHash;
    });
    return hash;
}

}  // namespace lumo::tools
