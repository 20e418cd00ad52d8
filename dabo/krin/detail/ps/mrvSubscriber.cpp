// The most-recent-value subscriber and its delegator are compiled once per
// topic, here, so that no other unit instantiates their bodies.
#include "dabo/krin/detail/ps/mrvSubscriber.h"

#include "dabo/krin/detail/ps/mrvSubscriberDelegator.h"
#include "dabo/krin/detail/ps/mrvSubscriber_impl.h"
#include "lumotypes/Topics.h"
#include "lumotypes/krin/LumotypesImpl.h"

namespace orlo::dabo::krin::detail::ps {

#define LUMOTYPES_KRIN_INSTANTIATE_MRV_SUBSCRIBER(Name)                                     \
    template class KrinMrvSubscriber<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;     \
    template class KrinMrvSubscriberDelegator<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_INSTANTIATE_MRV_SUBSCRIBER)
#undef LUMOTYPES_KRIN_INSTANTIATE_MRV_SUBSCRIBER

}  // namespace orlo::dabo::krin::detail::ps
