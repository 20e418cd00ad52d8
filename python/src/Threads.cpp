#include "Threads.h"

#include <cmath>
#include <string>

namespace lumotypes::python {

std::atomic<bool>& interpreterStopping() {
    static std::atomic<bool> stopping(false);
    return stopping;
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
    py::gil_scoped_acquire gil;
    Py_DECREF(object);
}

}  // namespace lumotypes::python
