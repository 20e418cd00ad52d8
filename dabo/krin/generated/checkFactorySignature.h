#pragma once

// Hosts call the exported factories through the signatures of the host
// component; a change on either side fails the plug-in's build here rather
// than a host at run time. Used after the factories of a kind are defined:
//   #define CHECK(Name) LUMOTYPES_KRIN_CHECK_FACTORY_SIGNATURE(Publisher, Name)
//   LUMOTYPES_FOR_EACH_TOPIC(CHECK)

#include <type_traits>

#include "lumotypes/host/Factories.h"

#define LUMOTYPES_KRIN_CHECK_FACTORY_SIGNATURE(Kind, Name)                                      \
    static_assert(std::is_same_v<decltype(generated_krin_##Kind##_lumotypes_##Name),             \
                                 ::lumotypes::host::Kind##Factory<::lumotypes::Name>>,           \
                  "generated_krin_" #Kind "_lumotypes_" #Name " differs from lumotypes::host::" #Kind "Factory");
