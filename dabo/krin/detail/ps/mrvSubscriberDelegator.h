#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/ps/basePubSub.h"
#include "dabo/krin/detail/ps/mrvSubscriber.h"
#include "dabo/ps/MrvSubscriber.h"

namespace orlo::dabo::krin::detail::ps {

/// What a host owns of a most-recent-value subscriber: a strong reference and
/// plain forwards. Deleting it closes nothing, and neither does the
/// subscriber's destructor.
template <typename T, typename ST>
class KrinMrvSubscriberDelegator : public orlo::dabo::ps::MrvSubscriber<T> {
public:
    void close() override { impl->close(); }
    std::vector<std::shared_ptr<T>> readMostRecent(const std::chrono::milliseconds& timeout) override {
        return impl->readMostRecent(timeout);
    }
    ~KrinMrvSubscriberDelegator() override = default;

    /// The host's strong reference; set once, by the factory.
    std::shared_ptr<KrinMrvSubscriber<T, ST>> impl;
};

/// The steps of every exported most-recent-value subscriber factory: a
/// delegator, the subscriber in shared ownership, then `init`; on failure
/// everything made is dropped and the exception goes to the host unchanged.
template <typename T, typename ST>
orlo::dabo::ps::MrvSubscriber<T>* createMrvSubscriber(
    const std::string& uri, const QoSList& qos, const orlo::dabo::Dabo::Properties& properties,
    const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo) {
    auto delegator = std::make_unique<KrinMrvSubscriberDelegator<T, ST>>();
    delegator->impl = std::make_shared<KrinMrvSubscriber<T, ST>>(uri, qos, properties, dabo);
    delegator->impl->init();
    return delegator.release();
}

}  // namespace orlo::dabo::krin::detail::ps
