#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "RuntimeCounters.h"
#include "dabo/krin/KrinMetrics.h"

namespace orlo::dabo::krin::detail {

/// The counters of a runtime, by endpoint and by subscription URI. The
/// runtime's thread looks a counter set up once, when it binds an endpoint or
/// opens a subscription, and keeps it by reference: a set lives as long as
/// the runtime, so counts go on when an endpoint is bound again. Any thread
/// may take a snapshot.
class RuntimeMetrics {
public:
    EndpointCounters& endpoint(const std::string& endpoint);
    SubscriptionCounters& subscription(const std::string& uri);

    KrinMetrics snapshot() const;

private:
    mutable std::mutex mutex;
    std::map<std::string, std::unique_ptr<EndpointCounters>> endpoints;
    std::map<std::string, std::unique_ptr<SubscriptionCounters>> subscriptions;
};

}  // namespace orlo::dabo::krin::detail
