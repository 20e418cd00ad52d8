#include "tools/tap/OutputWriter.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace lumo::tools {

OutputWriter::OutputWriter(int output, int stopDescriptor) : output(output), stopDescriptor(stopDescriptor) {}

bool OutputWriter::write(const std::string& text) {
    std::size_t done = 0;
    while (isOpen && done < text.size()) {
        pollfd waits[2] = {{output, POLLOUT, 0}, {stopDescriptor, POLLIN, 0}};
        if (::poll(waits, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            isOpen = false;
            break;
        }
        if (waits[1].revents != 0) {
            isOpen = false;
            break;
        }
        if (waits[0].revents & (POLLERR | POLLHUP | POLLNVAL)) {
            isOpen = false;
            break;
        }
        // A pipe that polls writable takes PIPE_BUF bytes without blocking.
        const std::size_t chunk = std::min<std::size_t>(text.size() - done, PIPE_BUF);
        const ssize_t written = ::write(output, text.data() + done, chunk);
        if (written < 0) {
            if (errno == EINTR || errno == EAGAIN) {
                continue;
            }
            isOpen = false;
            break;
        }
        done += static_cast<std::size_t>(written);
    }
    return isOpen;
}

}  // namespace lumo::tools
