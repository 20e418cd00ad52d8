#include "tools/common/StopSignal.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>

namespace lumo::tools {

namespace {

sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

}  // namespace

StopSignal& StopSignal::install() {
    static StopSignal instance;
    return instance;
}

StopSignal::StopSignal() {
    const sigset_t signals = stopSignals();
    if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0 || ::pipe2(pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::runtime_error("cannot set up the handling of SIGINT and SIGTERM");
    }
    watcher = std::thread([this] { watch(); });
    // The watcher lives as long as the process: it may have to end it.
    watcher.detach();
}

void StopSignal::watch() {
    const sigset_t signals = stopSignals();
    int signal = 0;
    if (sigwait(&signals, &signal) != 0) {
        return;
    }
    requestStop();
    // An operator who asks twice means it: no grace period the second time.
    if (sigwait(&signals, &signal) == 0) {
        std::_Exit(128 + signal);
    }
}

bool StopSignal::stopped() const {
    std::lock_guard<std::mutex> lock(mutex);
    return stopRequested;
}

bool StopSignal::waitUntil(std::chrono::steady_clock::time_point deadline) const {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait_until(lock, deadline, [this] { return stopRequested; });
    return stopRequested;
}

void StopSignal::onStop(std::function<void()> wake) {
    std::unique_lock<std::mutex> lock(mutex);
    if (stopRequested) {
        lock.unlock();
        wake();
        return;
    }
    wakers.push_back(std::move(wake));
}

void StopSignal::requestStop() {
    std::vector<std::function<void()>> toWake;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (stopRequested) {
            return;
        }
        stopRequested = true;
        toWake.swap(wakers);
    }
    changed.notify_all();
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(pipe[1], &byte, 1);
    for (const auto& wake : toWake) {
        wake();
    }
}

int runUntilStopped(const std::string& tool, int exitCode, const std::function<int()>& work) {
    // Shared with the worker and the waker, either of which may outlive this call.
    struct Outcome {
        std::mutex mutex;
        std::condition_variable finished;
        bool done = false;
        int result = 0;
        std::exception_ptr failure;
    };
    auto outcome = std::make_shared<Outcome>();
    StopSignal& stop = StopSignal::install();
    std::thread worker([outcome, work] {
        int result = 0;
        std::exception_ptr thrown;
        try {
            result = work();
        } catch (...) {
            thrown = std::current_exception();
        }
        std::lock_guard<std::mutex> lock(outcome->mutex);
        outcome->result = result;
        outcome->failure = thrown;
        outcome->done = true;
        outcome->finished.notify_all();
    });
    stop.onStop([outcome] {
        std::lock_guard<std::mutex> lock(outcome->mutex);
        outcome->finished.notify_all();
    });
    std::unique_lock<std::mutex> lock(outcome->mutex);
    outcome->finished.wait(lock, [&] { return outcome->done || stop.stopped(); });
    if (!outcome->finished.wait_for(lock, stopGrace, [&] { return outcome->done; })) {
        std::cerr << tool << ": interrupted; not waiting for the call in progress to return" << std::endl;
        std::_Exit(exitCode);
    }
    lock.unlock();
    worker.join();
    if (outcome->failure) {
        std::rethrow_exception(outcome->failure);
    }
    return outcome->result;
}

}  // namespace lumo::tools
