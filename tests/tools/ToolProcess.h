#pragma once

// Runs one of the installed-style programs (the demo, krin-tap, krin-pub) as
// a child process with its output in files, and waits for it with a generous
// bound instead of assuming how long it takes.

#include <signal.h>
#include <sys/wait.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace lumo::test {

class ToolProcess {
public:
    /// Where the process's stdout goes: a file the test reads, or a pipe that
    /// nobody reads, as a reader that stopped reading.
    enum class Stdout { toFile, toUnreadPipe };

    ToolProcess(const std::string& program, const std::vector<std::string>& arguments,
                Stdout where = Stdout::toFile) {
        static int serial = 0;
        const std::string stem = "/tmp/lumo-tool-" + std::to_string(::getpid()) + "-" + std::to_string(++serial);
        outPath = stem + ".out";
        errPath = stem + ".err";
        int unread[2] = {-1, -1};
        if (where == Stdout::toUnreadPipe && ::pipe(unread) != 0) {
            return;
        }
        pid = ::fork();
        if (pid == 0) {
            const int out = where == Stdout::toUnreadPipe ? unread[1]
                                                          : ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            ::dup2(out, STDOUT_FILENO);
            ::dup2(err, STDERR_FILENO);
            std::vector<char*> argv;
            argv.push_back(const_cast<char*>(program.c_str()));
            for (const auto& argument : arguments) {
                argv.push_back(const_cast<char*>(argument.c_str()));
            }
            argv.push_back(nullptr);
            ::execv(program.c_str(), argv.data());
            ::_exit(127);
        }
        if (where == Stdout::toUnreadPipe) {
            ::close(unread[1]);
            pipeEnd = unread[0];
        }
    }

    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    ~ToolProcess() {
        if (pid > 0 && !finished) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
        if (pipeEnd >= 0) {
            ::close(pipeEnd);
        }
        ::unlink(outPath.c_str());
        ::unlink(errPath.c_str());
    }

    /// The exit status, or -1 if the process did not end within `limit` (it is
    /// then killed) or ended by a signal.
    int wait(std::chrono::seconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!finished) {
            int status = 0;
            const pid_t done = ::waitpid(pid, &status, WNOHANG);
            if (done == pid) {
                finished = true;
                exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
                break;
            }
            if (std::chrono::steady_clock::now() > deadline) {
                ::kill(pid, SIGKILL);
                ::waitpid(pid, nullptr, 0);
                finished = true;
                exitStatus = -1;
                break;
            }
            // Polling the child's state; nothing is assumed about its timing.
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return exitStatus;
    }

    /// Asks the process to stop as an interrupted user would, and waits.
    int interrupt(std::chrono::seconds limit) {
        if (!finished) {
            ::kill(pid, SIGTERM);
        }
        return wait(limit);
    }

    /// Sends `signal` and measures how long the process takes to end: the
    /// exit status (-1 if it did not end within `limit`) and the time taken.
    std::pair<int, std::chrono::milliseconds> signalAndTime(int signal, std::chrono::seconds limit) {
        const auto sent = std::chrono::steady_clock::now();
        ::kill(pid, signal);
        const auto deadline = sent + limit;
        while (std::chrono::steady_clock::now() < deadline) {
            int status = 0;
            if (::waitpid(pid, &status, WNOHANG) == pid) {
                finished = true;
                exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
                return {exitStatus, std::chrono::duration_cast<std::chrono::milliseconds>(
                                        std::chrono::steady_clock::now() - sent)};
            }
            // A fine poll of the child's state, so that the time measured is the child's.
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return {wait(std::chrono::seconds(0)), std::chrono::duration_cast<std::chrono::milliseconds>(limit)};
    }

    /// Sends `signal` without waiting (SIGSTOP, SIGCONT).
    void send(int signal) { ::kill(pid, signal); }

    /// Waits until `condition(err())` holds; false if it does not within `limit`.
    template <typename Condition>
    bool awaitErr(Condition condition, std::chrono::seconds limit) {
        return await([&] { return condition(err()); }, limit);
    }

    /// Waits until `condition(out())` holds; false if it does not within `limit`.
    template <typename Condition>
    bool awaitOut(Condition condition, std::chrono::seconds limit) {
        return await([&] { return condition(out()); }, limit);
    }

    /// The resident memory of the running process in KiB, from /proc.
    long residentKiB() const {
        std::ifstream status("/proc/" + std::to_string(pid) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("VmRSS:", 0) == 0) {
                return std::stol(line.substr(6));
            }
        }
        return -1;
    }

    /// Kills the process without warning, as a crash or `kill -9` would.
    void kill() {
        if (!finished) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
            finished = true;
        }
    }

    std::string out() const { return read(outPath); }
    std::string err() const { return read(errPath); }

private:
    template <typename Condition>
    bool await(Condition condition, std::chrono::seconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            // Polling the child's output; nothing is assumed about its timing.
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }

    static std::string read(const std::string& path) {
        std::ifstream in(path);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    pid_t pid = -1;
    int pipeEnd = -1;
    bool finished = false;
    int exitStatus = -1;
    std::string outPath;
    std::string errPath;
};

/// Lines of `text`, without their line ends.
inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace lumo::test
