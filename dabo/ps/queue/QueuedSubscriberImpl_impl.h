#pragma once

// All template bodies of the engine's core; include this where the core is
// instantiated.
#include "dabo/ps/queue/QueuedSubscriberImplCore_impl.h"
#include "dabo/ps/queue/QueuedSubscriberImplReads_impl.h"
#include "dabo/ps/queue/QueuedSubscriberImplSubscriptions_impl.h"
