#pragma once

#include <signal.h>

namespace orlo::dabo::krin::detail {

/// While it lives, the calling thread blocks every signal except those that
/// a thread's own faults raise (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT,
/// SIGTRAP, SIGSYS); its destructor restores the mask that was.
///
/// The runtime starts each of its threads inside one, so that the thread
/// inherits the mask from its first instruction: the host's signals (timers,
/// a child's end, Ctrl-C, a profiler's ticks) then go to the host's threads,
/// and none of the runtime's waits ends early with EINTR, which ZeroMQ
/// reports from a receive or an events query as an error.
class HostSignalsHeldBack {
public:
    HostSignalsHeldBack();
    ~HostSignalsHeldBack();

    HostSignalsHeldBack(const HostSignalsHeldBack&) = delete;
    HostSignalsHeldBack& operator=(const HostSignalsHeldBack&) = delete;

private:
    sigset_t previous;
};

}  // namespace orlo::dabo::krin::detail
