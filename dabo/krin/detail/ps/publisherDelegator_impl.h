#pragma once

// Bodies of KrinPublisherDelegator.

#include "dabo/krin/detail/ps/instancePublisher.h"
#include "dabo/krin/detail/ps/publisher.h"
#include "dabo/krin/detail/ps/publisherDelegator.h"

namespace orlo::dabo::krin::detail::ps {

template <typename T, typename ST>
orlo::dabo::ps::Publisher<T>* KrinPublisherDelegator<T, ST>::create(
    const std::string& uri, const QoSList& qos, const orlo::dabo::Dabo::Properties& properties,
    const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo) {
    std::unique_ptr<KrinPublisherDelegator<T, ST>> delegator(new KrinPublisherDelegator<T, ST>());
    // Shared ownership first: init hands the runtime a weak reference to it.
    delegator->impl = std::make_shared<KrinPublisher<T, ST>>(uri, qos, properties, dabo);
    try {
        delegator->impl->init();
    } catch (...) {
        // The publisher's destructor unregisters what init may have registered.
        delegator->impl.reset();
        throw;
    }
    return delegator.release();
}

template <typename T, typename ST>
KrinPublisherDelegator<T, ST>::~KrinPublisherDelegator() = default;

template <typename T, typename ST>
std::shared_ptr<T> KrinPublisherDelegator<T, ST>::createDataEntity() {
    return impl->createDataEntity();
}

template <typename T, typename ST>
std::shared_ptr<orlo::dabo::Dabo> KrinPublisherDelegator<T, ST>::getDabo() const {
    return impl->getDabo();
}

template <typename T, typename ST>
void KrinPublisherDelegator<T, ST>::publish(const T& sample, const std::chrono::milliseconds& timeout) {
    impl->publish(sample, timeout);
}

template <typename T, typename ST>
void KrinPublisherDelegator<T, ST>::publish(double timestamp, const T& sample,
                                            const std::chrono::milliseconds& timeout) {
    impl->publish(timestamp, sample, timeout);
}

template <typename T, typename ST>
void KrinPublisherDelegator<T, ST>::close() {
    impl->close();
}

template <typename T, typename ST>
std::unique_ptr<orlo::dabo::ps::InstancePublisher<T>> KrinPublisherDelegator<T, ST>::createInstancePublisher(
    const T& instance) {
    impl->checkState();
    return std::unique_ptr<orlo::dabo::ps::InstancePublisher<T>>(new KrinInstancePublisher<T, ST>(impl, instance));
}

}  // namespace orlo::dabo::krin::detail::ps
