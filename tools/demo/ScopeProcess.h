#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace lumo::demo {

/// krin-scope, the program beside the demo, run as a child on the demo's
/// topics so that the loop can be watched in a browser.
class ScopeProcess {
public:
    /// Starts krin-scope with `arguments` and waits for the address it
    /// serves; throws std::runtime_error if it cannot start or says none.
    explicit ScopeProcess(const std::vector<std::string>& arguments);
    ~ScopeProcess();

    ScopeProcess(const ScopeProcess&) = delete;
    ScopeProcess& operator=(const ScopeProcess&) = delete;

    /// "http://127.0.0.1:PORT/".
    const std::string& address() const { return url; }

    /// Interrupts the scope, which then prints its counts, and waits for it.
    void stop();

private:
    pid_t pid = -1;
    std::string url;
};


}  // namespace lumo::demo
