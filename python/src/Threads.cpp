#include "Threads.h"

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace lumotypes::python {

std::atomic<bool>& interpreterStopping() {
    static std::atomic<bool> stopping(false);
    return stopping;
}

namespace {

struct InterpreterGate {
    std::mutex mutex;
    std::condition_variable entriesLeft;
    bool closed = false;
    std::thread::id closer;
    int entries = 0;
};

InterpreterGate& gate() {
    static InterpreterGate* const instance = new InterpreterGate();  // never destroyed: used until the process ends
    return *instance;
}

[[noreturn]] void waitForTheProcessToEnd() {
    for (;;) {
        std::this_thread::sleep_for(std::chrono::hours(1));
    }
}

}  // namespace

PythonEntry::PythonEntry() {
    InterpreterGate& g = gate();
    std::lock_guard<std::mutex> lock(g.mutex);
    admitted = !g.closed || std::this_thread::get_id() == g.closer;
    g.entries += admitted ? 1 : 0;
}

PythonEntry::~PythonEntry() {
    if (!admitted) {
        return;
    }
    InterpreterGate& g = gate();
    std::lock_guard<std::mutex> lock(g.mutex);
    --g.entries;
    g.entriesLeft.notify_all();
}

void closeInterpreterGate() {
    InterpreterGate& g = gate();
    std::unique_lock<std::mutex> lock(g.mutex);
    g.closed = true;
    g.closer = std::this_thread::get_id();
    g.entriesLeft.wait(lock, [&g] { return g.entries == 0; });
}

void takeGilBack(PyThreadState* saved) {
    const PythonEntry entry;
    if (!entry) {
        waitForTheProcessToEnd();
    }
    PyEval_RestoreThread(saved);
}

std::optional<std::chrono::milliseconds> timeoutFrom(const std::optional<double>& seconds, const char* what) {
    if (!seconds) {
        return std::nullopt;
    }
    if (std::isnan(*seconds) || *seconds < 0) {
        throw py::value_error(std::string(what) + ": the time-out must be a number of seconds >= 0, not " +
                              std::to_string(*seconds));
    }
    if (std::isinf(*seconds)) {
        return std::nullopt;
    }
    return std::chrono::milliseconds(static_cast<long long>(std::llround(*seconds * 1000.0)));
}

SharedObject::~SharedObject() {
    if (object == nullptr || interpreterStopping().load() || !Py_IsInitialized()) {
        return;  // the interpreter frees what is left; taking the GIL now could hang
    }
    const PythonEntry entry;
    if (!entry) {
        return;
    }
    py::gil_scoped_acquire gil;
    Py_DECREF(object);
}

}  // namespace lumotypes::python
