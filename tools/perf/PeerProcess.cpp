#include "tools/perf/PeerProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>
#include <stdexcept>

namespace lumo::perf {

namespace {

/// A pipe whose ends a started program does not inherit.
struct Pipe {
    int ends[2] = {-1, -1};
    Pipe() {
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe failed");
        }
    }
};

}  // namespace

std::string Peer::readLine(std::chrono::milliseconds limit) {
    std::string line;
    return reader.next(line, limit) ? line : std::string();
}

namespace {

void closeOnce(int& end) {
    if (end >= 0) {
        ::close(end);
        end = -1;
    }
}

}  // namespace

void Peer::closeInput() { closeOnce(input); }

void Peer::closeOutput() { closeOnce(output); }

PeerProcess::PeerProcess(const std::string& program, const std::vector<std::string>& arguments)
    : PeerProcess(program, arguments, Pipe().ends, Pipe().ends) {}

PeerProcess::PeerProcess(const std::string& program, const std::vector<std::string>& arguments, const int (&toChild)[2],
                         const int (&fromChild)[2])
    : Peer(toChild[1], fromChild[0]) {
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
}

PeerProcess::~PeerProcess() {
    if (pid > 0) {
        ::kill(pid, SIGKILL);
        finish();
    }
}

int PeerProcess::finish() {
    // Closing the peer's stdin is what tells it that the run is over.
    closeInput();
    int status = 0;
    if (pid > 0) {
        ::waitpid(pid, &status, 0);
        pid = -1;
    }
    closeOutput();
    return status;
}

PeerThread::PeerThread(Role role) : PeerThread(std::move(role), Pipe().ends, Pipe().ends) {}

PeerThread::PeerThread(Role role, const int (&toRole)[2], const int (&fromRole)[2])
    : Peer(toRole[1], fromRole[0]), roleInput(toRole[0]) {
    const int roleOutput = fromRole[1];
    thread = std::thread([this, role = std::move(role), roleOutput] {
        DriverLink driver(roleInput, roleOutput);
        try {
            status = role(driver);
        } catch (const std::exception& failure) {
            std::cerr << "krin-perf: " << failure.what() << std::endl;
            status = 3;
        }
        // The driving side reads to the end of what the role wrote; the role's
        // input stays open until finish(), so that a late line to it is harmless.
        ::close(roleOutput);
    });
}

PeerThread::~PeerThread() { finish(); }

int PeerThread::finish() {
    closeInput();
    if (thread.joinable()) {
        thread.join();
        ::close(roleInput);
    }
    closeOutput();
    return status;
}

}  // namespace lumo::perf
