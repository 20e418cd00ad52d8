// Exported data entity factories, one per topic of the topic list: each
// returns a new binding object in its empty form, as an untyped pointer the
// caller owns.

#include "dabo/krin/generated/checkFactorySignature.h"
#include "lumotypes/Export.h"
#include "lumotypes/Topics.h"
#include "lumotypes/krin/LumotypesImpl.h"

#define LUMOTYPES_DATA_ENTITY_FACTORY(T)                                          \
    extern "C" LUMOTYPES_EXPORT void* generated_krin_DataEntity_lumotypes_##T() { \
        return new ::lumotypes::krin::T##Impl();                                  \
    }

LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_DATA_ENTITY_FACTORY)

#undef LUMOTYPES_DATA_ENTITY_FACTORY

#define LUMOTYPES_KRIN_CHECK_SIGNATURE(Name) LUMOTYPES_KRIN_CHECK_FACTORY_SIGNATURE(DataEntity, Name)
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_CHECK_SIGNATURE)
#undef LUMOTYPES_KRIN_CHECK_SIGNATURE
