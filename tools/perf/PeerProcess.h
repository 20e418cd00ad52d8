#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace lumo::perf {

/// The second process of a run: this same program started with other
/// arguments, with a pipe to its stdin and one from its stdout.
class PeerProcess {
public:
    PeerProcess(const std::string& program, const std::vector<std::string>& arguments);
    ~PeerProcess();
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    /// True once the peer has written something (or ended); never blocks.
    bool hasOutput() const;
    /// The next line the peer writes, or "" if none comes within `limit`.
    std::string readLine(std::chrono::milliseconds limit);
    /// Sends one line to the peer's stdin.
    void writeLine(const std::string& line);
    /// Closes the peer's stdin and waits for it to end; its exit status.
    int finish();

private:
    pid_t pid = -1;
    int input = -1;
    int output = -1;
    std::string buffered;
};

}  // namespace lumo::perf
