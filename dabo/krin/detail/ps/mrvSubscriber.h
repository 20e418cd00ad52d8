#pragma once

#include "dabo/krin/detail/LogLimiter.h"
#include "dabo/krin/detail/ps/subscriberLifecycleFwd.h"
#include "dabo/ps/queue/MapMrvSubscriber.h"

namespace orlo::dabo::krin::detail::ps {

/// Most-recent-value subscriber of topic `T` (binding `ST`) over the
/// transport: the same messages as KrinSubscriber, landing in a store of
/// latest samples instead of the queue engine. Reading is the store's; the
/// life cycle is the one it shares with KrinSubscriber (SubscriberLifecycle).
///
/// Unlike KrinSubscriber, its destructor does not close: an object dropped
/// while open stays registered, and the runtime's weak reference then yields
/// nothing.
template <typename T, typename ST>
class KrinMrvSubscriber : public orlo::dabo::ps::queue::MapMrvSubscriber<T, ST>,
                          public EventsHandler,
                          public std::enable_shared_from_this<KrinMrvSubscriber<T, ST>>,
                          protected KrinBasePubSub<T, ST> {
public:
    KrinMrvSubscriber(const std::string& uri, const QoSList& qos, const orlo::dabo::Dabo::Properties& properties,
                      const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo);

    /// As KrinSubscriber's, but what it closes last is the store, for reading.
    void close() override;

    /// Its own: does not close (see above).
    ~KrinMrvSubscriber() override = default;

    /// As KrinSubscriber's.
    bool events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) override;

    /// As KrinSubscriber's.
    void init();

protected:
    // What KrinSubscriber has too, with the same meaning; none of its others.
    std::string topicIdFrame;
    std::uint32_t dataEntityTypeHash;
    std::shared_ptr<zmq::socket_t> socket;
    log4cplus::Logger logger;
    /// Bad messages already reported, on the runtime's thread: a repeated one is
    /// logged once per interval with its count.
    LogLimiter receiveFailures;
    bool disableTypeHashCheck;

private:
    /// Its life cycle, with what closes last (the store) and its words.
    using Lifecycle = SubscriberLifecycle<KrinMrvSubscriber, T, ST, orlo::dabo::ps::queue::MapMrvSubscriber<T, ST>,
                                          subscriberCommon::mrvKind>;
    friend Lifecycle;

    /// Takes one message off the socket, checks it and stores the sample.
    void readData();

    /// Its own: the sample goes into the store; nothing of the header is kept.
    void deliver(std::unique_ptr<ST> entity, const orlo::dabo::krin::rr::KrinHeader& header);
};

}  // namespace orlo::dabo::krin::detail::ps
