#pragma once

#include <string>

namespace lumo::tools {

/// Writes the tap's output to a file descriptor without ever blocking past a
/// stop: it waits for the descriptor to take more with poll(), together with
/// the descriptor that a stop makes readable, so a reader that stopped
/// reading holds the tap only until SIGINT or SIGTERM.
class OutputWriter {
public:
    /// Writes to `output`; a stop is told by `stopDescriptor` becoming readable.
    OutputWriter(int output, int stopDescriptor);

    /// Writes all of `text`; false if a stop came first or the output is
    /// closed (the reader went away), after which nothing more is written.
    bool write(const std::string& text);

    /// False once a write failed or was cut short by a stop.
    bool open() const { return isOpen; }

private:
    int output;
    int stopDescriptor;
    bool isOpen = true;
};

}  // namespace lumo::tools
