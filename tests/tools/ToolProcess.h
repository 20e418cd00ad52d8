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
#include <vector>

namespace lumo::test {

class ToolProcess {
public:
    ToolProcess(const std::string& program, const std::vector<std::string>& arguments) {
        static int serial = 0;
        const std::string stem = "/tmp/lumo-tool-" + std::to_string(::getpid()) + "-" + std::to_string(++serial);
        outPath = stem + ".out";
        errPath = stem + ".err";
        pid = ::fork();
        if (pid == 0) {
            const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
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
    }

    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    ~ToolProcess() {
        if (pid > 0 && !finished) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
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
    static std::string read(const std::string& path) {
        std::ifstream in(path);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    pid_t pid = -1;
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
