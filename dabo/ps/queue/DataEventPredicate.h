#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <tuple>

#include "dabo/ps/DataEvent.h"
#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/queue/PredicateOutcome.h"

namespace orlo::dabo::ps::queue::detail {

/// A callback registered with subscribe, and the map in which such
/// registrations wait for a poll: id -> (id, filter, callback).
template <typename T>
using SubscriptionCallback = std::function<void(Subscriber<T>&, const DataEvent<T>&)>;
template <typename T>
using SubscriptionEntry = std::tuple<std::string, DataEventFilter<T>, SubscriptionCallback<T>>;
template <typename T>
using SubscriptionMap = std::map<std::string, SubscriptionEntry<T>>;

/// A party that wants data events: offered an event, it decides whether it
/// wants it and does with it what its waiting owner needs.
template <typename T, typename ST>
class DataEventPredicate {
public:
    /// The filter to weigh against new subscriptions, or null for none.
    virtual std::unique_ptr<DataEventFilter<T>> getFilter();
    /// Looks at `event` (never null) and says what became of it.
    virtual PredicateOutcome matchAndProcess(const std::shared_ptr<DataEvent<T>>& event) = 0;
    virtual ~DataEventPredicate() = default;

    /// Whether `event` is one that `filter` wants.
    bool matches(const DataEvent<T>& event, const DataEventFilter<T>& filter) const;
};

/// The first entry of `subscriptions`, in id order, whose filter wants
/// `event`, or null.
template <typename T, typename ST>
const SubscriptionEntry<T>* findSubscription(const DataEventPredicate<T, ST>& predicate,
                                             const SubscriptionMap<T>& subscriptions, const DataEvent<T>& event);

}  // namespace orlo::dabo::ps::queue::detail
