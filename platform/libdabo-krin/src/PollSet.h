#pragma once

#include <chrono>
#include <functional>
#include <vector>
#include <zmq.hpp>

namespace orlo::dabo::krin::detail {

/// What the runtime's thread waits on: its sockets and its wake-up
/// descriptor, each with what to do when it is readable.
///
/// The set is built once and kept until a socket is opened or closed
/// (invalidate()); then the loop builds it afresh before it next waits.
/// zmq::poll needs its items side by side, so each item's source sits at the
/// same index of a second array, and add() is the only way to fill either.
class PollSet {
public:
    using Serve = std::function<void()>;

    /// Whether the set is to be built again before the next wait.
    bool isStale() const { return stale; }
    void invalidate() { stale = true; }
    /// Empties the set for a new build; it is current afterwards.
    void clear();

    /// `owner` names the object that serves the socket, for forget().
    void add(zmq::socket_t& socket, const void* owner, Serve serve);
    void add(int fileDescriptor, const void* owner, Serve serve);

    /// The sources of `owner` are not served any more, not even later in the
    /// current turn: serving one source may close another's socket. The set
    /// is built again before the next wait.
    void forget(const void* owner);

    /// Waits for readable sources, at most `timeout` (-1 for no limit), then
    /// serves each readable one once. An interrupted wait serves nothing.
    void pollAndServe(std::chrono::milliseconds timeout);

private:
    struct Source {
        const void* owner;
        Serve serve;
    };

    std::vector<zmq::pollitem_t> items;
    std::vector<Source> sources;
    bool stale = true;
};

}  // namespace orlo::dabo::krin::detail
