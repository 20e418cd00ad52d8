#pragma once

// The runtime alone, for measuring it: samples of three frames of the
// plug-in's sizes (topic frame, a header as long as a real one, a payload)
// through a runtime's dealer, endpoint and subscription sockets, with nothing
// of the plug-in on either side. The sample id rides in the first four
// payload bytes.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace orlo::dabo::krin::detail {
class KrinDabo;
}  // namespace orlo::dabo::krin::detail

namespace orlo::dabo::krin::probe {

using Runtime = std::shared_ptr<detail::KrinDabo>;

/// The topic frame the plug-in sends for `topic`.
std::string topicFrameOf(const std::string& topic);
/// A header frame as long as the one the plug-in sends.
std::string headerLikeFrame();

/// Publishes raw samples of `topic` at the endpoint tcp://127.0.0.1:PORT,
/// registered with the runtime from construction to destruction.
class RawSender {
public:
    /// Returns once the runtime has confirmed the registration.
    RawSender(const Runtime& runtime, int port, const std::string& topic, std::size_t payloadSize);
    ~RawSender();
    RawSender(const RawSender&) = delete;
    RawSender& operator=(const RawSender&) = delete;

    /// Sends as the plug-in does: never waits; a full queue loses the sample.
    void send(std::uint32_t id);

private:
    struct State;
    std::unique_ptr<State> state;
};

/// Receives the raw samples of `topic` at `uri`, calling `onSample` with
/// each id on the runtime's thread.
class RawReceiver {
public:
    RawReceiver(const Runtime& runtime, const std::string& uri, const std::string& topic,
                std::function<void(std::uint32_t id)> onSample);
    ~RawReceiver();
    RawReceiver(const RawReceiver&) = delete;
    RawReceiver& operator=(const RawReceiver&) = delete;

private:
    struct State;
    std::unique_ptr<State> state;
};

}  // namespace orlo::dabo::krin::probe
