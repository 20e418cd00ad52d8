#pragma once

// A helper program run as a separate process, with a pipe to its stdin and
// one from its stdout: the soak and fault tests talk to their publishing and
// subscribing processes by lines.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <chrono>
#include <string>
#include <vector>

namespace lumo::test {

class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& command) {
        int toChild[2];
        int fromChild[2];
        if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(fromChild, O_CLOEXEC) != 0) {
            return;
        }
        std::vector<char*> argv;
        for (const std::string& word : command) {
            argv.push_back(const_cast<char*>(word.c_str()));
        }
        argv.push_back(nullptr);
        pid = ::fork();
        if (pid == 0) {
            ::dup2(toChild[0], STDIN_FILENO);
            ::dup2(fromChild[1], STDOUT_FILENO);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        ::close(toChild[0]);
        ::close(fromChild[1]);
        input = toChild[1];
        output = fromChild[0];
    }

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    ~ChildProcess() {
        closePipes();
        if (running()) {
            kill(SIGKILL);
        }
    }

    bool started() const { return pid > 0; }
    pid_t processId() const { return pid; }
    bool running() const { return pid > 0 && !reaped; }

    /// The next line on the process's stdout, or "" when none comes within `limit`.
    std::string readLine(std::chrono::milliseconds limit = std::chrono::seconds(60)) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        for (;;) {
            const auto end = pending.find('\n');
            if (end != std::string::npos) {
                std::string line = pending.substr(0, end);
                pending.erase(0, end + 1);
                return line;
            }
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            pollfd readable{output, POLLIN, 0};
            if (left.count() <= 0 || ::poll(&readable, 1, static_cast<int>(left.count())) <= 0) {
                return {};
            }
            char buffer[256];
            const ssize_t got = ::read(output, buffer, sizeof buffer);
            if (got <= 0) {
                return {};
            }
            pending.append(buffer, static_cast<std::size_t>(got));
        }
    }

    /// The next line that starts with `prefix`, skipping others.
    std::string awaitLine(const std::string& prefix, std::chrono::milliseconds limit = std::chrono::seconds(60)) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < deadline) {
            const std::string line = readLine(
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()));
            if (line.rfind(prefix, 0) == 0) {
                return line;
            }
        }
        return {};
    }

    bool send(const std::string& line) {
        const std::string text = line + "\n";
        return ::write(input, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

    /// Sends the signal and reaps the process; its wait status.
    int kill(int signal) {
        ::kill(pid, signal);
        return wait();
    }

    /// Waits for the process to end; its exit code, or 128 + signal.
    int wait() {
        int status = 0;
        ::waitpid(pid, &status, 0);
        reaped = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    void closePipes() {
        if (input >= 0) {
            ::close(input);
            input = -1;
        }
        if (output >= 0) {
            ::close(output);
            output = -1;
        }
    }

    pid_t pid = -1;
    int input = -1;
    int output = -1;
    bool reaped = false;
    std::string pending;
};

/// Resident memory of this process in KiB, from /proc.
inline long residentKiB() {
    FILE* status = std::fopen("/proc/self/status", "r");
    if (status == nullptr) {
        return -1;
    }
    char line[256];
    long kib = -1;
    while (std::fgets(line, sizeof line, status) != nullptr) {
        if (std::sscanf(line, "VmRSS: %ld kB", &kib) == 1) {
            break;
        }
    }
    std::fclose(status);
    return kib;
}

}  // namespace lumo::test
