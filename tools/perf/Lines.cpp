#include "tools/perf/Lines.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace lumo::perf {

bool LineReader::ready() const {
    pollfd item{descriptor, POLLIN, 0};
    return buffered.find('\n') != std::string::npos || ::poll(&item, 1, 0) > 0;
}

bool LineReader::next(std::string& line, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto newline = buffered.find('\n');
        if (newline != std::string::npos) {
            line = buffered.substr(0, newline);
            buffered.erase(0, newline + 1);
            return true;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd item{descriptor, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&item, 1, static_cast<int>(left.count())) <= 0) {
            return false;
        }
        char chunk[512];
        const ssize_t got = ::read(descriptor, chunk, sizeof chunk);
        if (got <= 0) {
            return false;
        }
        buffered.append(chunk, static_cast<std::size_t>(got));
    }
}

void writeLine(int descriptor, const std::string& line) {
    const std::string text = line + "\n";
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(descriptor, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;  // The reader is gone: nobody is left to tell.
        }
        done += static_cast<std::size_t>(written);
    }
}

bool DriverLink::hear(std::string& line) {
    // A driver may stay silent for the whole run; it ends the conversation by closing its end.
    while (!reader.next(line, std::chrono::hours(1))) {
        if (reader.ready()) {
            return reader.next(line, std::chrono::milliseconds(0));
        }
    }
    return true;
}

}  // namespace lumo::perf
