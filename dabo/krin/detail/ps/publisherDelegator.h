#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/ps/basePubSub.h"
#include "dabo/ps/Publisher.h"

namespace orlo::dabo::krin::detail::ps {

template <typename T, typename ST>
class KrinPublisher;

/// What a host owns when it asks for a publisher: its one strong reference to
/// the KrinPublisher, which must live in shared ownership. Everything but the
/// making of instance publishers is passed straight on.
template <typename T, typename ST>
class KrinPublisherDelegator : public orlo::dabo::ps::Publisher<T> {
public:
    /// Makes, registers and returns a publisher, or throws what went wrong
    /// after having freed everything made so far.
    static orlo::dabo::ps::Publisher<T>* create(const std::string& uri, const QoSList& qos,
                                                const orlo::dabo::Dabo::Properties& properties,
                                                const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo);

    std::shared_ptr<T> createDataEntity() override;
    /// Drops the reference only; it does not close.
    ~KrinPublisherDelegator() override;
    std::shared_ptr<orlo::dabo::Dabo> getDabo() const override;
    void publish(const T& sample, const std::chrono::milliseconds& timeout) override;
    void publish(double timestamp, const T& sample, const std::chrono::milliseconds& timeout) override;
    void close() override;
    std::unique_ptr<orlo::dabo::ps::InstancePublisher<T>> createInstancePublisher(const T& instance) override;

private:
    KrinPublisherDelegator() = default;

    std::shared_ptr<KrinPublisher<T, ST>> impl;
};

}  // namespace orlo::dabo::krin::detail::ps
