#pragma once

#include <cstdint>

#include "lumotypes/Topics.h"

namespace lumotypes {
#define LUMOTYPES_KRIN_DECLARE_TOPIC(Name) class Name;
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_DECLARE_TOPIC)
#undef LUMOTYPES_KRIN_DECLARE_TOPIC
}  // namespace lumotypes

namespace orlo::dabo::krin::detail::ps {

/// What the transport needs to know of a topic type beyond its binding: the
/// constant that names its payload type in every message header, and its bare
/// name for span names. The constants come from the package's table of type
/// hashes (lumotypes/src/typeHashes.txt), through the generated topic list.
template <typename T>
struct TopicTraits;

#define LUMOTYPES_KRIN_DEFINE_TOPIC_TRAITS(Name, TypeHash)            \
    template <>                                                       \
    struct TopicTraits<::lumotypes::Name> {                           \
        static constexpr std::uint32_t dataEntityTypeHash = TypeHash; \
        static constexpr const char* shortName = #Name;               \
    };
LUMOTYPES_FOR_EACH_TYPE_HASH(LUMOTYPES_KRIN_DEFINE_TOPIC_TRAITS)
#undef LUMOTYPES_KRIN_DEFINE_TOPIC_TRAITS

}  // namespace orlo::dabo::krin::detail::ps
