// Exported queued-subscriber factories of the lumotypes package, one per topic:
// generated_krin_Subscriber_lumotypes_<T>.
#include <memory>
#include <string>

#include "dabo/krin/detail/ps/subscriberDelegator.h"
#include "dabo/krin/generated/checkFactorySignature.h"
#include "lumotypes/Export.h"
#include "lumotypes/Topics.h"
#include "lumotypes/krin/LumotypesImpl.h"

#define LUMOTYPES_KRIN_SUBSCRIBER_FACTORY(Name)                                                                  \
    extern "C" LUMOTYPES_EXPORT orlo::dabo::ps::Subscriber<::lumotypes::Name>* generated_krin_Subscriber_lumotypes_##Name( \
        const std::string& uri, const orlo::dabo::krin::detail::ps::QoSList& qos,                                \
        const orlo::dabo::Dabo::Properties& properties,                                                          \
        const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo) {                                       \
        return orlo::dabo::krin::detail::ps::createSubscriber<::lumotypes::Name, ::lumotypes::krin::Name##Impl>( \
            uri, qos, properties, dabo);                                                                         \
    }
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_SUBSCRIBER_FACTORY)
#undef LUMOTYPES_KRIN_SUBSCRIBER_FACTORY

#define LUMOTYPES_KRIN_CHECK_SIGNATURE(Name) LUMOTYPES_KRIN_CHECK_FACTORY_SIGNATURE(Subscriber, Name)
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_CHECK_SIGNATURE)
#undef LUMOTYPES_KRIN_CHECK_SIGNATURE
