#pragma once

#include <log4cplus/logger.h>

#include <cstdint>
#include <memory>
#include <string>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/EventsHandler.h"
#include "dabo/krin/detail/ps/basePubSub.h"
#include "dabo/ps/queue/MapMrvSubscriber.h"

namespace zmq {
class socket_t;
}

namespace orlo::dabo::krin::detail::ps {

/// Most-recent-value subscriber of topic `T` (binding `ST`) over the
/// transport: the same messages as KrinSubscriber, landing in a store of
/// latest samples instead of the queue engine. Reading is the store's.
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

    /// Unregisters, waits up to the event time-out for UNREGISTERED, then
    /// closes the store for reading. On a closed subscriber it only warns.
    void close() override;

    ~KrinMrvSubscriber() override = default;

    /// Runtime's thread: keeps the socket of REGISTERED, records registration
    /// changes, and reads one message per POLLER_READABLE. Always true.
    bool events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) override;

    /// Registers with the runtime and blocks until the subscription socket has
    /// arrived; throws DaboException if it does not within the event time-out.
    void init();

protected:
    /// First frame of every message of this topic.
    std::string topicIdFrame;
    /// What a received header must carry, unless the check is disabled.
    std::uint32_t dataEntityTypeHash;
    /// Set by REGISTERED on the runtime's thread; kept after close.
    std::shared_ptr<zmq::socket_t> socket;
    log4cplus::Logger logger;
    /// From "krin.ps.disableTypeHashCheck" at construction.
    bool disableTypeHashCheck;

private:
    /// Takes one message off the socket, checks it and stores the sample.
    void readData();
};

}  // namespace orlo::dabo::krin::detail::ps
