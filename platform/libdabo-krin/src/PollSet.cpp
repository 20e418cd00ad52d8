#include "PollSet.h"

#include <cerrno>
#include <utility>

namespace orlo::dabo::krin::detail {

void PollSet::clear() {
    items.clear();
    sources.clear();
    stale = false;
}

void PollSet::add(zmq::socket_t& socket, const void* owner, Serve serve) {
    items.push_back(zmq::pollitem_t{socket.handle(), 0, ZMQ_POLLIN, 0});
    sources.push_back(Source{owner, std::move(serve)});
}

void PollSet::add(int fileDescriptor, const void* owner, Serve serve) {
    items.push_back(zmq::pollitem_t{nullptr, fileDescriptor, ZMQ_POLLIN, 0});
    sources.push_back(Source{owner, std::move(serve)});
}

void PollSet::forget(const void* owner) {
    for (std::size_t i = 0; i < sources.size(); ++i) {
        if (sources[i].owner == owner) {
            // Not served in this turn; the function itself stays, as it may
            // be the one running now.
            items[i].revents = 0;
        }
    }
    stale = true;
}

void PollSet::pollAndServe(std::chrono::milliseconds timeout) {
    try {
        zmq::poll(items.data(), items.size(), timeout);
    } catch (const zmq::error_t& e) {
        if (e.num() == EINTR) {
            return;
        }
        throw;
    }
    for (std::size_t i = 0; i < items.size(); ++i) {
        if ((items[i].revents & ZMQ_POLLIN) != 0) {
            sources[i].serve();
        }
    }
}

}  // namespace orlo::dabo::krin::detail
