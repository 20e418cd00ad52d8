// Exported data entity factories, one per topic of the topic list: each
// returns a new binding object in its empty form, as an untyped pointer the
// caller owns.

#include <type_traits>

#include "lumotypes/Topics.h"
#include "lumotypes/host/Factories.h"
#include "lumotypes/krin/LumotypesImpl.h"
#include "lumotypes/src/LumotypesExport.h"

#define LUMOTYPES_DATA_ENTITY_FACTORY(T)                                          \
    extern "C" LUMOTYPES_EXPORT void* generated_krin_DataEntity_lumotypes_##T() { \
        return new ::lumotypes::krin::T##Impl();                                  \
    }

LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_DATA_ENTITY_FACTORY)

#undef LUMOTYPES_DATA_ENTITY_FACTORY

// Hosts call these through the signatures of the host component; a change on
// either side fails here rather than in a host at run time.
#define LUMOTYPES_KRIN_CHECK_SIGNATURE(Name)                                                           \
    static_assert(std::is_same_v<decltype(generated_krin_DataEntity_lumotypes_##Name),                      \
                                 ::lumotypes::host::DataEntityFactory<::lumotypes::Name>>,                  \
                  "generated_krin_DataEntity_lumotypes_" #Name " differs from lumotypes::host::DataEntityFactory");
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_CHECK_SIGNATURE)
#undef LUMOTYPES_KRIN_CHECK_SIGNATURE
