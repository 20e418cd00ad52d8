// Exported most-recent-value subscriber factories of the lumotypes package, one
// per topic: generated_krin_MrvSubscriber_lumotypes_<T>.
#include <memory>
#include <string>

#include "dabo/krin/detail/ps/mrvSubscriberDelegator.h"
#include "dabo/krin/generated/checkFactorySignature.h"
#include "lumotypes/Export.h"
#include "lumotypes/Topics.h"
#include "lumotypes/krin/LumotypesImpl.h"

#define LUMOTYPES_KRIN_MRV_SUBSCRIBER_FACTORY(Name)                                                  \
    extern "C" LUMOTYPES_EXPORT orlo::dabo::ps::MrvSubscriber<::lumotypes::Name>*                         \
        generated_krin_MrvSubscriber_lumotypes_##Name(                                               \
            const std::string& uri, const orlo::dabo::krin::detail::ps::QoSList& qos,                \
            const orlo::dabo::Dabo::Properties& properties,                                          \
            const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo) {                       \
        return orlo::dabo::krin::detail::ps::createMrvSubscriber<::lumotypes::Name,                  \
                                                                 ::lumotypes::krin::Name##Impl>(     \
            uri, qos, properties, dabo);                                                             \
    }
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_MRV_SUBSCRIBER_FACTORY)
#undef LUMOTYPES_KRIN_MRV_SUBSCRIBER_FACTORY

#define LUMOTYPES_KRIN_CHECK_SIGNATURE(Name) LUMOTYPES_KRIN_CHECK_FACTORY_SIGNATURE(MrvSubscriber, Name)
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_CHECK_SIGNATURE)
#undef LUMOTYPES_KRIN_CHECK_SIGNATURE
