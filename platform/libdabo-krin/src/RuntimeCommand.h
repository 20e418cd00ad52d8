#pragma once

#include <future>
#include <memory>
#include <string>
#include <zmq.hpp>

#include "dabo/krin/detail/EventsHandler.h"

namespace orlo::dabo::krin::detail {

/// One request from a host thread to the runtime's thread.
struct RuntimeCommand {
    enum class Kind { RegisterPublisher, UnregisterPublisher, RegisterSubscriber, UnregisterSubscriber };

    Kind kind;
    std::string endpoint;
    std::string identity;
    std::string topicIdFrame;
    std::shared_ptr<zmq::socket_t> socket;
    std::weak_ptr<EventsHandler> handler;
    /// Set when the caller waits until REGISTERED has been handed out.
    std::shared_ptr<std::promise<void>> registrationDone;
    /// Why a publisher's endpoint could not be bound, in words; written on
    /// the runtime's thread before registrationDone is kept.
    std::shared_ptr<std::string> bindFailure;
    /// A subscriber's "krin.ps://HOST:PORT/TOPIC", the label of its counters.
    std::string uri;
};

}  // namespace orlo::dabo::krin::detail
