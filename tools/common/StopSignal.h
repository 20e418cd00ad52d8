#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace lumo::tools {

/// SIGINT and SIGTERM of a tool, taken by a thread of its own with sigwait
/// instead of a handler, so that whatever the tool waits on can be woken the
/// moment a signal comes rather than at its next due sample or time-out.
///
/// `install()` must run first in main, before any other thread starts: it
/// blocks both signals in the calling thread, every thread started later
/// inherits that, and only the watching thread then receives them. A second
/// signal ends the process at once.
class StopSignal {
public:
    /// The process's one instance, watching from the first call on.
    static StopSignal& install();

    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// True once a signal came (or `requestStop` was called).
    bool stopped() const;

    /// Waits until `deadline` or a signal, whichever is first; true if stopped.
    bool waitUntil(std::chrono::steady_clock::time_point deadline) const;

    /// A file descriptor that becomes readable once stopped, for poll().
    int descriptor() const { return pipe[0]; }

    /// Calls `wake` on the watching thread when a signal comes (or at once if
    /// one already has), so that a wait elsewhere can end.
    void onStop(std::function<void()> wake);

    /// Stops as if a signal had come.
    void requestStop();

private:
    StopSignal();
    void watch();

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    bool stopRequested = false;
    std::vector<std::function<void()>> wakers;
    int pipe[2] = {-1, -1};
    std::thread watcher;
};

/// How long a tool's work has, after a signal, to end on its own before the
/// process leaves without it: well inside the 100 ms in which an operator's
/// Ctrl-C or a supervisor's SIGTERM must take effect.
constexpr std::chrono::milliseconds stopGrace{60};

/// Runs `work` on a thread of its own and returns its result, or rethrows
/// what it threw. If a signal comes first, `work` has `stopGrace` to return;
/// a work still inside a call that cannot be interrupted then (a factory in
/// its slow-joiner delay, a runtime waiting for a registration) is left
/// behind: `tool` says so on stderr and the process ends with `exitCode`
/// without running destructors. Nothing was published or received by such a
/// call yet, so nothing is lost by leaving it.
int runUntilStopped(const std::string& tool, int exitCode, const std::function<int()>& work);

}  // namespace lumo::tools
