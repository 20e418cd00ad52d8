#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tools/perf/Lines.h"

namespace lumo::perf {

/// The other side of a run, as the driving side talks to it: lines to the
/// peer's input, lines from its output.
class Peer {
public:
    virtual ~Peer() = default;
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// True once the peer has written something (or ended); never blocks.
    bool hasOutput() const { return reader.ready(); }
    /// The next line the peer writes, or "" if none comes within `limit`.
    std::string readLine(std::chrono::milliseconds limit);
    /// Sends one line to the peer's input.
    void writeLine(const std::string& line) { lumo::perf::writeLine(input, line); }
    /// Closes the peer's input and waits for it to end; its exit status.
    virtual int finish() = 0;

protected:
    Peer(int input, int output) : input(input), output(output), reader(output) {}
    /// Closes the pipe into the peer: the peer reads its end.
    void closeInput();
    /// Closes the pipe from the peer, once it cannot write any more.
    void closeOutput();

private:
    int input;
    int output;
    LineReader reader;
};

/// The peer as a second process: this same program started with other
/// arguments, with a pipe to its stdin and one from its stdout.
class PeerProcess : public Peer {
public:
    PeerProcess(const std::string& program, const std::vector<std::string>& arguments);
    ~PeerProcess() override;
    int finish() override;

private:
    PeerProcess(const std::string& program, const std::vector<std::string>& arguments, const int (&toChild)[2],
                const int (&fromChild)[2]);
    pid_t pid = -1;
};

/// The peer's role on a thread of this process, talking over a pair of pipes
/// exactly as a peer process does over its stdin and stdout.
class PeerThread : public Peer {
public:
    using Role = std::function<int(DriverLink&)>;

    explicit PeerThread(Role role);
    ~PeerThread() override;
    /// Closes the role's input, waits for it to return; what it returned.
    int finish() override;

private:
    PeerThread(Role role, const int (&toRole)[2], const int (&fromRole)[2]);
    int roleInput;
    int status = 0;
    std::thread thread;
};

}  // namespace lumo::perf
