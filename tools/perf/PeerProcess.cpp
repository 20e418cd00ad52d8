#include "tools/perf/PeerProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace lumo::perf {

PeerProcess::PeerProcess(const std::string& program, const std::vector<std::string>& arguments) {
    int toChild[2];
    int fromChild[2];
    if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(fromChild, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid = ::fork();
    if (pid == 0) {
        ::dup2(toChild[0], STDIN_FILENO);
        ::dup2(fromChild[1], STDOUT_FILENO);
        ::execv(program.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(toChild[0]);
    ::close(fromChild[1]);
    input = toChild[1];
    output = fromChild[0];
}

PeerProcess::~PeerProcess() {
    if (pid > 0) {
        ::kill(pid, SIGKILL);
        finish();
    }
}

bool PeerProcess::hasOutput() const {
    pollfd item{output, POLLIN, 0};
    return ::poll(&item, 1, 0) > 0;
}

std::string PeerProcess::readLine(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto newline = buffered.find('\n');
        if (newline != std::string::npos) {
            std::string line = buffered.substr(0, newline);
            buffered.erase(0, newline + 1);
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd item{output, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&item, 1, static_cast<int>(left.count())) <= 0) {
            return {};
        }
        char chunk[512];
        const ssize_t got = ::read(output, chunk, sizeof chunk);
        if (got <= 0) {
            return {};
        }
        buffered.append(chunk, static_cast<std::size_t>(got));
    }
}

void PeerProcess::writeLine(const std::string& line) {
    const std::string text = line + "\n";
    [[maybe_unused]] const ssize_t written = ::write(input, text.data(), text.size());
}

int PeerProcess::finish() {
    if (input >= 0) {
        ::close(input);
        input = -1;
    }
    int status = 0;
    if (pid > 0) {
        ::waitpid(pid, &status, 0);
        pid = -1;
    }
    if (output >= 0) {
        ::close(output);
        output = -1;
    }
    return status;
}

}  // namespace lumo::perf
