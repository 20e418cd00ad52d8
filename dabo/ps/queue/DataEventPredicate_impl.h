#pragma once

#include <set>

#include "dabo/ps/queue/DataEventPredicate.h"
#include "dabo/ps/queue/obtainImpl.h"

namespace orlo::dabo::ps::queue::detail {

template <typename T, typename ST>
std::unique_ptr<DataEventFilter<T>> DataEventPredicate<T, ST>::getFilter() {
    return nullptr;
}

template <typename T, typename ST>
bool DataEventPredicate<T, ST>::matches(const DataEvent<T>& event, const DataEventFilter<T>& filter) const {
    if (filter.instance) {
        const ST& wanted = obtainImpl<T, ST>(*filter.instance);
        const std::shared_ptr<T>& data = event.getData();
        if (!data) {
            return false;
        }
        const ST& got = obtainImpl<T, ST>(*data);
        if (!wanted.keyEquals(got)) {
            return false;
        }
    }
    if (filter.instanceState != INSTANCE_ANY && filter.instanceState != event.getInstanceState()) {
        return false;
    }
    const std::set<InstanceEvent> wantedEvents = filter.instanceEvents;
    if (wantedEvents.empty()) {
        return true;
    }
    return wantedEvents.count(event.getInstanceEvent()) != 0;
}

template <typename T, typename ST>
const SubscriptionEntry<T>* findSubscription(const DataEventPredicate<T, ST>& predicate,
                                             const SubscriptionMap<T>& subscriptions, const DataEvent<T>& event) {
    for (const auto& entry : subscriptions) {
        if (predicate.matches(event, std::get<1>(entry.second))) {
            return &entry.second;
        }
    }
    return nullptr;
}

}  // namespace orlo::dabo::ps::queue::detail
