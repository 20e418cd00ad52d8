// Exported queued-subscriber factories of the lumotypes package, one per topic:
// generated_krin_Subscriber_lumotypes_<T>.
#include <memory>
#include <string>
#include <type_traits>

#include "dabo/krin/detail/ps/subscriberDelegator.h"
#include "dabo/krin/generated/exportFactory.h"
#include "lumotypes/Topics.h"
#include "lumotypes/host/Factories.h"
#include "lumotypes/krin/LumotypesImpl.h"

#define LUMOTYPES_KRIN_SUBSCRIBER_FACTORY(Name)                                                                  \
    LUMOTYPES_KRIN_FACTORY orlo::dabo::ps::Subscriber<::lumotypes::Name>* generated_krin_Subscriber_lumotypes_##Name( \
        const std::string& uri, const orlo::dabo::krin::detail::ps::QoSList& qos,                                \
        const orlo::dabo::Dabo::Properties& properties,                                                          \
        const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo) {                                       \
        return orlo::dabo::krin::detail::ps::createSubscriber<::lumotypes::Name, ::lumotypes::krin::Name##Impl>( \
            uri, qos, properties, dabo);                                                                         \
    }
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_SUBSCRIBER_FACTORY)
#undef LUMOTYPES_KRIN_SUBSCRIBER_FACTORY

// Hosts call these through the signatures of the host component; a change on
// either side fails here rather than in a host at run time.
#define LUMOTYPES_KRIN_CHECK_SIGNATURE(Name)                                                           \
    static_assert(std::is_same_v<decltype(generated_krin_Subscriber_lumotypes_##Name),                      \
                                 ::lumotypes::host::SubscriberFactory<::lumotypes::Name>>,                  \
                  "generated_krin_Subscriber_lumotypes_" #Name " differs from lumotypes::host::SubscriberFactory");
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_CHECK_SIGNATURE)
#undef LUMOTYPES_KRIN_CHECK_SIGNATURE
