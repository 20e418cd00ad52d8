#include "EventAnnouncer.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <utility>

namespace orlo::dabo::krin::detail {

void fulfil(std::shared_ptr<std::promise<void>>& done) {
    if (done) {
        done->set_value();
        done.reset();
    }
}

bool deliverEvent(log4cplus::Logger& logger, const std::weak_ptr<EventsHandler>& handler,
                  std::shared_ptr<zmq::socket_t> socket, KrinDaboEvent event, bool* handled) {
    std::shared_ptr<EventsHandler> locked = handler.lock();
    if (!locked) {
        LOG4CPLUS_TRACE(logger, "Event " << static_cast<int>(event) << " dropped: its handler is gone");
        return false;
    }
    bool succeeded = false;
    try {
        succeeded = locked->events(socket, event);
    } catch (const std::exception& e) {
        LOG4CPLUS_ERROR(logger, "Event handler failed on event " << static_cast<int>(event) << ": " << e.what());
    } catch (...) {
        LOG4CPLUS_ERROR(logger, "Event handler failed on event " << static_cast<int>(event));
    }
    if (handled != nullptr) {
        *handled = succeeded;
    }
    return true;
}

EventAnnouncer::Outcome EventAnnouncer::announce(const EventDelivery& delivery,
                                                 const std::weak_ptr<EventsHandler>& handler,
                                                 const std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event,
                                                 std::shared_ptr<std::promise<void>>& done) {
    auto waiting = std::move(done);
    switch (delivery.mode) {
        case EventDelivery::Mode::Immediately: {
            const bool delivered = deliverEvent(logger, handler, socket, event);
            fulfil(waiting);
            return delivered ? Outcome::Delivered : Outcome::HandlerGone;
        }
        case EventDelivery::Mode::Withhold:
            fulfil(waiting);
            return Outcome::NotNow;
        case EventDelivery::Mode::Delay:
            pending.push_back(Pending{Clock::now() + delivery.delay, handler, socket, event, std::move(waiting)});
            return Outcome::NotNow;
    }
    return Outcome::NotNow;
}

std::vector<EventAnnouncer::Pending> EventAnnouncer::takeDue(Clock::time_point now) {
    std::vector<Pending> due;
    for (auto it = pending.begin(); it != pending.end();) {
        if (it->due <= now) {
            due.push_back(std::move(*it));
            it = pending.erase(it);
        } else {
            ++it;
        }
    }
    return due;
}

std::optional<EventAnnouncer::Clock::time_point> EventAnnouncer::nextDue() const {
    if (pending.empty()) {
        return std::nullopt;
    }
    const auto earliest = std::min_element(pending.begin(), pending.end(), [](const Pending& a, const Pending& b) {
        return a.due < b.due;
    });
    return earliest->due;
}

void EventAnnouncer::abandonAll() {
    for (Pending& event : pending) {
        fulfil(event.done);
    }
    pending.clear();
}

}  // namespace orlo::dabo::krin::detail
