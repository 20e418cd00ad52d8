#pragma once

#include <cstdint>

namespace lumotypes {
class InterfaceControlArgs;
class Dummy;
class LumoMode;
class RefPos;
class CentOpt;
class CentError;
class SimCentErrors;
class FieldStablizationTopicIn;
class FieldStablizationTopicOut;
class HokuTopicIn;
class HokuTopicOut;
}  // namespace lumotypes

namespace orlo::dabo::krin::detail::ps {

/// What the transport needs to know of a topic type beyond its binding: the
/// constant that names its payload type in every message header, and its bare
/// name for span names. The constants were fixed when the interface package
/// was generated and are shared with every other implementation of it, so
/// they are listed here, not derived.
template <typename T>
struct TopicTraits;

#define LUMOTYPES_KRIN_TOPIC_TRAITS(X)              \
    X(InterfaceControlArgs, 0xBA02E1E8u)            \
    X(Dummy, 0xCEA0902Cu)                           \
    X(LumoMode, 0xA2794C0Eu)                        \
    X(RefPos, 0x67C91967u)                          \
    X(CentOpt, 0x920890A6u)                         \
    X(CentError, 0x92EDE413u)                       \
    X(SimCentErrors, 0x0C5E8FF9u)                   \
    X(FieldStablizationTopicIn, 0xF7CDF808u)        \
    X(FieldStablizationTopicOut, 0xF8D457E0u)       \
    X(HokuTopicIn, 0xE043B579u)                     \
    X(HokuTopicOut, 0x72C23DD8u)

#define LUMOTYPES_KRIN_DEFINE_TOPIC_TRAITS(Name, TypeHash)            \
    template <>                                                       \
    struct TopicTraits<::lumotypes::Name> {                           \
        static constexpr std::uint32_t dataEntityTypeHash = TypeHash; \
        static constexpr const char* shortName = #Name;               \
    };
LUMOTYPES_KRIN_TOPIC_TRAITS(LUMOTYPES_KRIN_DEFINE_TOPIC_TRAITS)
#undef LUMOTYPES_KRIN_DEFINE_TOPIC_TRAITS

}  // namespace orlo::dabo::krin::detail::ps
