#pragma once

#include <log4cplus/logger.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include <zmq.hpp>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/EventsHandler.h"
#include "dabo/krin/detail/ps/basePubSub.h"
#include "dabo/ps/InstancePublisher.h"
#include "dabo/ps/Publisher.h"

namespace orlo::dabo::krin::detail::ps {

template <typename T, typename ST>
class KrinInstancePublisher;
template <typename T, typename ST>
class KrinPublisherDelegator;

/// Publisher of topic `T` (binding `ST`) at one URI. It sends every sample as
/// one three-frame message on a DEALER socket that the runtime made for it;
/// registration and unregistration are confirmed by the runtime's thread
/// through `events`.
///
/// Hosts never hold it directly: the exported factory keeps it in shared
/// ownership behind a KrinPublisherDelegator, since the runtime reaches it
/// through a std::weak_ptr and `init` needs shared_from_this().
template <typename T, typename ST>
class KrinPublisher : protected KrinBasePubSub<T, ST>,
                      public orlo::dabo::ps::Publisher<T>,
                      public EventsHandler,
                      public std::enable_shared_from_this<KrinPublisher<T, ST>> {
public:
    KrinPublisher(const std::string& uri, const QoSList& qos, const orlo::dabo::Dabo::Properties& properties,
                  const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo);
    ~KrinPublisher() override;

    std::shared_ptr<orlo::dabo::Dabo> getDabo() const override;
    /// Refuses: instance publishers are made by the delegator.
    std::unique_ptr<orlo::dabo::ps::InstancePublisher<T>> createInstancePublisher(const T& instance) override;
    void publish(const T& sample, const std::chrono::milliseconds& timeout) override;
    void publish(double timestamp, const T& sample, const std::chrono::milliseconds& timeout) override;
    std::shared_ptr<T> createDataEntity() override;
    void close() override;
    bool events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) override;

    /// Registers with the runtime, waits for its confirmation and sleeps the
    /// slow-joiner delay. Called once, after a std::shared_ptr owns the object.
    void init();

    /// Sleeps for the "krin.ps.slowJoinerDelayMs" property, if it is positive.
    static void slowJoinerDelay(const orlo::dabo::Dabo::Properties& properties);

    /// Sends one sample; `timestamp` null means "now". Shared by both publish
    /// overloads here and in the instance publishers.
    void internalPublish(const double* timestamp, const T& sample, const std::chrono::milliseconds& timeout);

protected:
    std::int32_t topicIdHash;
    std::uint32_t dataEntityTypeHash;
    std::string topicIdFrame;
    std::string registrationEndpoint;
    log4cplus::Logger publisherLogger;
    std::atomic<bool> destroying;
    bool tracingEnabled;
    std::unique_ptr<zmq::socket_t> dealerSocket;
    std::uint32_t nextSequence;
    std::mutex sendMutex;
    std::list<orlo::dabo::ps::InstancePublisher<T>*> instancePublishers;
    std::mutex instanceListMutex;

private:
    friend class KrinInstancePublisher<T, ST>;
    friend class KrinPublisherDelegator<T, ST>;
};

}  // namespace orlo::dabo::krin::detail::ps
