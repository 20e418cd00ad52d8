// The queued subscriber and its delegator are compiled once per topic, here,
// so that no other unit instantiates their bodies.
#include "dabo/krin/detail/ps/subscriber.h"

#include "dabo/krin/detail/ps/subscriberDelegator.h"
#include "dabo/krin/detail/ps/subscriber_impl.h"
#include "lumotypes/Topics.h"
#include "lumotypes/krin/LumotypesImpl.h"

namespace orlo::dabo::krin::detail::ps {

#define LUMOTYPES_KRIN_INSTANTIATE_SUBSCRIBER(Name)                                       \
    template class KrinSubscriber<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;      \
    template class KrinSubscriberDelegator<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_INSTANTIATE_SUBSCRIBER)
#undef LUMOTYPES_KRIN_INSTANTIATE_SUBSCRIBER

}  // namespace orlo::dabo::krin::detail::ps
