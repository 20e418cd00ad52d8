#pragma once

#include <log4cplus/logger.h>

#include <chrono>
#include <deque>
#include <future>
#include <memory>
#include <optional>
#include <vector>
#include <zmq.hpp>

#include "dabo/krin/detail/EventsHandler.h"
#include "dabo/krin/detail/RuntimeSeam.h"

namespace orlo::dabo::krin::detail {

/// Calls `handler` through a lock of its weak pointer, on the runtime's
/// thread; a handler's exception is logged and goes no further. False if the
/// handler is gone. `handled`, when given, says whether the handler
/// reported the event handled (it returned true and threw nothing).
bool deliverEvent(log4cplus::Logger& logger, const std::weak_ptr<EventsHandler>& handler,
                  std::shared_ptr<zmq::socket_t> socket, KrinDaboEvent event, bool* handled = nullptr);

/// The events that register and unregister calls cause: delivered now, later
/// or never, as the seam says, and the caller's promise kept once delivery
/// is over.
class EventAnnouncer {
public:
    using Clock = std::chrono::steady_clock;

    /// What became of an announcement.
    enum class Outcome { Delivered, HandlerGone, NotNow };

    struct Pending {
        Clock::time_point due;
        std::weak_ptr<EventsHandler> handler;
        std::shared_ptr<zmq::socket_t> socket;
        KrinDaboEvent event;
        std::shared_ptr<std::promise<void>> done;
    };

    explicit EventAnnouncer(log4cplus::Logger logger) : logger(std::move(logger)) {}

    /// `done` moves here and is kept exactly once: now, or when a delayed
    /// event is delivered.
    Outcome announce(const EventDelivery& delivery, const std::weak_ptr<EventsHandler>& handler,
                     const std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event,
                     std::shared_ptr<std::promise<void>>& done);

    /// The delayed events due at `now`; the caller announces them at once.
    std::vector<Pending> takeDue(Clock::time_point now);
    /// When the next delayed event is due; nothing when none waits.
    std::optional<Clock::time_point> nextDue() const;
    /// Keeps the promises of every delayed event and forgets them.
    void abandonAll();

private:
    log4cplus::Logger logger;
    std::deque<Pending> pending;
};

/// Keeps `done`, if the caller waits on it, and lets go of it.
void fulfil(std::shared_ptr<std::promise<void>>& done);

}  // namespace orlo::dabo::krin::detail
