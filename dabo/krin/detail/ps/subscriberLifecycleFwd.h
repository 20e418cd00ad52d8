#pragma once

#include <log4cplus/logger.h>

#include <cstdint>
#include <memory>
#include <string>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/EventsHandler.h"
#include "dabo/krin/detail/ps/basePubSub.h"

// What the declarations of both subscriber classes need, without the socket
// and wire headers that only their bodies use.
namespace zmq {
class socket_t;
}

namespace orlo::dabo::krin::rr {
class KrinHeader;
}

namespace orlo::dabo::krin::detail::ps {

namespace subscriberCommon {
struct SubscriberKind;
extern const SubscriberKind queuedKind;
extern const SubscriberKind mrvKind;
}  // namespace subscriberCommon

template <typename S, typename T, typename ST, typename SampleHolder, const subscriberCommon::SubscriberKind& kind>
struct SubscriberLifecycle;

}  // namespace orlo::dabo::krin::detail::ps
