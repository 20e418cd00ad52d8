#pragma once

#include <chrono>
#include <string>

namespace lumo::perf {

/// Lines from a pipe between the driving side of a run and its peer.
class LineReader {
public:
    explicit LineReader(int descriptor) : descriptor(descriptor) {}

    /// True once a line, or the writer's end, can be read without waiting.
    bool ready() const;
    /// The next line into `line`; false if none is complete within `limit`
    /// or the writer closed its end first.
    bool next(std::string& line, std::chrono::milliseconds limit);

private:
    int descriptor;
    std::string buffered;
};

/// Writes `line` and a newline to `descriptor`, whole.
void writeLine(int descriptor, const std::string& line);

/// The peer's side of its conversation with the driving side: its stdin and
/// stdout in a peer process, a pair of pipes on a thread of the same process.
class DriverLink {
public:
    DriverLink(int fromDriver, int toDriver) : reader(fromDriver), toDriver(toDriver) {}

    void say(const std::string& line) { writeLine(toDriver, line); }
    /// Waits for the driver's next line; false once the driver closed its end.
    bool hear(std::string& line);

private:
    LineReader reader;
    int toDriver;
};

}  // namespace lumo::perf
