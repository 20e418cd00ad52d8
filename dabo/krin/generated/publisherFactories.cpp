// The package's exported publisher factories, one per topic type, made from
// the package's list of topics so that none can be missing or misnamed.

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/ps/publisherDelegator.h"
#include "dabo/krin/generated/exportFactory.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/qos/QoS.h"
#include "lumotypes/Lumotypes.h"
#include "lumotypes/Topics.h"
#include "lumotypes/host/Factories.h"
#include "lumotypes/krin/LumotypesImpl.h"

#define LUMOTYPES_KRIN_PUBLISHER_FACTORY(Name)                                                                   \
    LUMOTYPES_KRIN_FACTORY orlo::dabo::ps::Publisher<::lumotypes::Name>* generated_krin_Publisher_lumotypes_##Name( \
        const std::string& uri, const std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>& qos,                  \
        const orlo::dabo::Dabo::Properties& properties,                                                             \
        const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo) {                                          \
        return orlo::dabo::krin::detail::ps::KrinPublisherDelegator<                                                \
            ::lumotypes::Name, ::lumotypes::krin::Name##Impl>::create(uri, qos, properties, dabo);                \
    }
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_PUBLISHER_FACTORY)
#undef LUMOTYPES_KRIN_PUBLISHER_FACTORY

// Hosts call these through the signatures of the host component; a change on
// either side fails here rather than in a host at run time.
#define LUMOTYPES_KRIN_CHECK_SIGNATURE(Name)                                                           \
    static_assert(std::is_same_v<decltype(generated_krin_Publisher_lumotypes_##Name),                      \
                                 ::lumotypes::host::PublisherFactory<::lumotypes::Name>>,                  \
                  "generated_krin_Publisher_lumotypes_" #Name " differs from lumotypes::host::PublisherFactory");
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_CHECK_SIGNATURE)
#undef LUMOTYPES_KRIN_CHECK_SIGNATURE
