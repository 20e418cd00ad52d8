#include "lumotypes/host/Payload.h"

#include <stdexcept>

#include "dabo/krin/detail/ps/KrinDataEntity.h"
#include "lumotypes/host/Topics.h"

namespace lumotypes::host {

namespace {

// The byte operations of a plug-in entity; throws if `entity` was not made by the plug-in.
template <typename T>
orlo::dabo::krin::detail::ps::KrinDataEntity<T>& bytesOf(T& entity) {
    auto* bytes = dynamic_cast<orlo::dabo::krin::detail::ps::KrinDataEntity<T>*>(&entity);
    if (bytes == nullptr) {
        throw std::logic_error(std::string("entity of ") + TopicTraits<T>::name + " has no byte operations");
    }
    return *bytes;
}

}  // namespace

template <typename T>
std::string toBytes(const T& entity) {
    std::string bytes;
    if (!bytesOf(const_cast<T&>(entity)).toByteArray(bytes)) {
        throw std::runtime_error(std::string("entity of ") + TopicTraits<T>::name + " does not serialise");
    }
    return bytes;
}

template <typename T>
bool fromBytes(T& entity, const std::string& bytes) {
    return bytesOf(entity).fromByteArray(bytes);
}

#define LUMOTYPES_HOST_INSTANTIATE_PAYLOAD(Name)                                 \
    template std::string toBytes<::lumotypes::Name>(const ::lumotypes::Name&); \
    template bool fromBytes<::lumotypes::Name>(::lumotypes::Name&, const std::string&);
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_HOST_INSTANTIATE_PAYLOAD)
#undef LUMOTYPES_HOST_INSTANTIATE_PAYLOAD

}  // namespace lumotypes::host
