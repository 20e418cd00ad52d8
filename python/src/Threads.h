#pragma once

// How the binding's C++ threads and blocking calls live with the interpreter:
// blocking calls wait without the GIL in short slices and answer Ctrl-C
// between them; Python objects that C++ threads hold are released under the
// GIL, and not at all once the interpreter is going away.

#include <pybind11/pybind11.h>

#include <atomic>
#include <chrono>
#include <optional>

namespace lumotypes::python {

namespace py = pybind11;

/// Set by the interpreter's exit handlers: from then on no C++ thread calls
/// into Python.
std::atomic<bool>& interpreterStopping();

/// Once the interpreter has begun to end, a thread other than the one ending
/// it that takes the GIL is ended by the interpreter on the spot, by an
/// unwind that aborts the process when it meets a C++ frame that may not
/// throw. So every thread that takes the GIL while C++ frames are on its
/// stack passes this gate first, and the module's exit hook closes it before
/// the interpreter ends:
///
/// - `PythonEntry`: taken before the GIL; false once the gate is closed, and
///   the caller must then not take the GIL. While one is held, the gate
///   cannot close.
/// - `closeInterpreterGate()`: called without the GIL by the thread that will
///   end the interpreter; waits for the entries under way. That thread may
///   enter afterwards too.
class PythonEntry {
public:
    PythonEntry();
    ~PythonEntry();
    PythonEntry(const PythonEntry&) = delete;
    PythonEntry& operator=(const PythonEntry&) = delete;

    explicit operator bool() const { return admitted; }

private:
    bool admitted;
};

void closeInterpreterGate();

/// Takes back the GIL that `saved` released. A thread the gate turns away
/// never returns: it waits until the process ends, as the interpreter's
/// own daemon threads do.
void takeGilBack(PyThreadState* saved);

/// Runs `action` without the GIL. The GIL is taken back in plain code, not in
/// a destructor (which may not throw), through the gate.
template <typename Action>
void withGilReleased(Action&& action) {
    PyThreadState* const saved = PyEval_SaveThread();
    try {
        action();
    } catch (...) {
        takeGilBack(saved);
        throw;
    }
    takeGilBack(saved);
}

/// A time-out given in seconds: none waits without end; negative throws ValueError.
std::optional<std::chrono::milliseconds> timeoutFrom(const std::optional<double>& seconds, const char* what);

/// Calls `step(slice)` without the GIL, with slices of at most 50 ms that add
/// up to `timeout` (forever without one), until it returns true. Pending
/// signals are handled between slices, so Ctrl-C raises KeyboardInterrupt.
/// Returns whether `step` returned true.
template <typename Step>
bool waitInSlices(const std::optional<std::chrono::milliseconds>& timeout, Step&& step) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds slice(50);
    const auto deadline = timeout ? Clock::now() + *timeout : Clock::time_point::max();
    for (;;) {
        std::chrono::milliseconds wait = slice;
        if (timeout) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            wait = std::max(std::chrono::milliseconds(0), std::min(left, slice));
        }
        bool done = false;
        withGilReleased([&] { done = step(wait); });
        if (done) {
            return true;
        }
        if (PyErr_CheckSignals() != 0) {
            throw py::error_already_set();
        }
        if (timeout && Clock::now() >= deadline) {
            return false;
        }
    }
}

/// Runs `action` without the GIL if this thread holds it, unless the
/// interpreter is stopping (when no other thread may call into Python).
template <typename Action>
void withoutGil(Action&& action) {
    if (PyGILState_Check() != 0 && !interpreterStopping().load()) {
        withGilReleased(action);
    } else {
        action();
    }
}

/// A Python object that C++ threads may copy and drop: its last owner takes
/// the GIL to release it, unless the interpreter is stopping.
class SharedObject {
public:
    explicit SharedObject(py::object object) : object(object.release().ptr()) {}
    SharedObject(const SharedObject&) = delete;
    SharedObject& operator=(const SharedObject&) = delete;
    ~SharedObject();

    py::handle get() const { return object; }

private:
    PyObject* object;
};

}  // namespace lumotypes::python
