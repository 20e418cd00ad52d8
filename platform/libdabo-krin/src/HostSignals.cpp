#include "HostSignals.h"

#include <pthread.h>

#include <initializer_list>

namespace orlo::dabo::krin::detail {

HostSignalsHeldBack::HostSignalsHeldBack() {
    sigset_t held;
    sigfillset(&held);
    // A fault blocked in the thread that raised it kills the process at
    // once, bypassing whatever handler the host (or a sanitizer) installed.
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
        sigdelset(&held, fault);
    }
    pthread_sigmask(SIG_BLOCK, &held, &previous);
}

HostSignalsHeldBack::~HostSignalsHeldBack() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }

}  // namespace orlo::dabo::krin::detail
