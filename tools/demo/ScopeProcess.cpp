#include "tools/demo/ScopeProcess.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <stdexcept>

namespace lumo::demo {

namespace {

std::string programBeside(const std::string& name) {
    char self[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) {
        throw std::runtime_error("cannot find the demo's own directory to start " + name);
    }
    std::string path(self, static_cast<std::size_t>(length));
    return path.erase(path.rfind('/') + 1) + name;
}

}  // namespace

ScopeProcess::ScopeProcess(const std::vector<std::string>& arguments) {
    const std::string program = programBeside("krin-scope");
    if (::access(program.c_str(), X_OK) != 0) {
        throw std::runtime_error("option --scope needs " + program + ", which is not there");
    }
    int output[2];
    if (::pipe(output) != 0) {
        throw std::runtime_error("cannot make a pipe for krin-scope");
    }
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const auto& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid = ::fork();
    if (pid == 0) {
        // The demo takes its signals on a thread of its own with the signals
        // blocked everywhere else; the scope is a program of its own and
        // starts with none blocked.
        sigset_t none;
        sigemptyset(&none);
        ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
        ::dup2(output[1], STDOUT_FILENO);
        ::close(output[0]);
        ::close(output[1]);
        ::execv(program.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(output[1]);
    // The scope's first line names its address; the rest of its output, if
    // any, is read by nobody and the pipe's end closes with this object.
    FILE* lines = ::fdopen(output[0], "r");
    char line[512];
    const std::string head = "krin-scope: serving ";
    while (lines != nullptr && std::fgets(line, sizeof line, lines) != nullptr) {
        const std::string text = line;
        if (text.rfind(head, 0) == 0) {
            url = text.substr(head.size(), text.find_last_not_of("\r\n") + 1 - head.size());
            break;
        }
    }
    if (lines != nullptr) {
        std::fclose(lines);
    }
    if (url.empty()) {
        stop();
        throw std::runtime_error("krin-scope did not start; its messages are above");
    }
}

ScopeProcess::~ScopeProcess() { stop(); }

void ScopeProcess::stop() {
    if (pid <= 0) {
        return;
    }
    ::kill(pid, SIGINT);
    ::waitpid(pid, nullptr, 0);
    pid = -1;
}

}  // namespace lumo::demo
