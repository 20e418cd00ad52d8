// The engine is compiled once per topic of the package, here; other units
// that use it see its declarations and link against these instances.
#include "dabo/ps/queue/DataEventImpl_impl.h"
#include "dabo/ps/queue/DataEventPredicateAsyncSubscription_impl.h"
#include "dabo/ps/queue/DataEventPredicatePoll_impl.h"
#include "dabo/ps/queue/DataEventPredicateReadEvents_impl.h"
#include "dabo/ps/queue/MapMrvSubscriber_impl.h"
#include "dabo/ps/queue/QueuedSubscriberImpl_impl.h"
#include "dabo/ps/queue/QueuedSubscriber_impl.h"
#include "dabo/ps/queue/QueuedSubscription_impl.h"
#include "lumotypes/Topics.h"
#include "lumotypes/krin/LumotypesImpl.h"

namespace orlo::dabo::ps::queue {

#define LUMOTYPES_QUEUE_INSTANTIATE_ENGINE(Name)                                                        \
    template class DataEventImpl<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;                       \
    template class InstanceQueue<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;                       \
    template class NoopLoanedDataEntityImpl<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;            \
    template class QueuedSubscriber<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;                    \
    template class MapMrvSubscriber<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;                    \
    template struct detail::STHash<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;                     \
    template struct detail::STEqual<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;                    \
    template class detail::DataEventPredicate<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;          \
    template class detail::DataEventPredicateReadEvents<::lumotypes::Name, ::lumotypes::krin::Name##Impl>; \
    template class detail::DataEventPredicateReadEventsListener<::lumotypes::Name,                       \
                                                                ::lumotypes::krin::Name##Impl>;          \
    template class detail::DataEventPredicatePoll<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;      \
    template class detail::DataEventPredicatePollListener<::lumotypes::Name, ::lumotypes::krin::Name##Impl>; \
    template class detail::DataEventPredicateAsyncSubscriptionListener<::lumotypes::Name,                \
                                                                       ::lumotypes::krin::Name##Impl>;   \
    template class detail::DataEventPredicateAsyncSubscriptionNotifier<::lumotypes::Name,                \
                                                                       ::lumotypes::krin::Name##Impl>;   \
    template class detail::QueuedSubscriberImpl<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;        \
    template class detail::QueuedSubscription<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;          \
    template class detail::SyncQueuedSubscription<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;      \
    template class detail::AsyncQueuedSubscription<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_QUEUE_INSTANTIATE_ENGINE)
#undef LUMOTYPES_QUEUE_INSTANTIATE_ENGINE

}  // namespace orlo::dabo::ps::queue
