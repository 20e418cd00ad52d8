// A publishing host in a process of its own whose file descriptors are few:
// it lowers its own RLIMIT_NOFILE before anything else, binds one HokuTopicIn
// publisher at 127.0.0.1:PORT and writes, one line each, on stdout:
//
//   "ready"                once the publisher is registered
//   "subscribers N"        whenever the subscriptions at its endpoint change
//   "log LEVEL MESSAGE"    every line of the runtime's logger at WARN and above
//   "published"            after the command "publish FIRST COUNT" on stdin
//                          has sent COUNT samples numbered from FIRST
//   "exhausted N"          after the command "exhaust": N files opened, until
//                          no descriptor was left
//   "released"             after the command "release": those files closed
//
// Usage: descriptorLimitedPublisher PORT DESCRIPTORS. Ends at the end of stdin.

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>
#include <sys/resource.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "HostFactories.h"
#include "SampleIds.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "lumotypes/Lumotypes.h"

namespace {

using Sample = lumotypes::HokuTopicIn;

/// One write per line, so that lines of different threads never mix.
void printLine(const std::string& text) {
    const std::string line = text + "\n";
    [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, line.data(), line.size());
}

/// The runtime's log lines, on stdout for the test to read.
class StdoutAppender : public log4cplus::Appender {
public:
    ~StdoutAppender() override { destructorImpl(); }
    void close() override {}

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        printLine("log " + log4cplus::getLogLevelManager().toString(event.getLogLevel()) + " " + event.getMessage());
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: descriptorLimitedPublisher PORT DESCRIPTORS\n";
        return 2;
    }
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::stoul(argv[2]);
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        std::cerr << "descriptorLimitedPublisher: cannot lower RLIMIT_NOFILE to " << argv[2] << "\n";
        return 3;
    }
    log4cplus::Logger runtimeLog = log4cplus::Logger::getInstance("vexa.dabo.krin.runtime");
    runtimeLog.setLogLevel(log4cplus::WARN_LOG_LEVEL);
    runtimeLog.addAppender(log4cplus::SharedAppenderPtr(new StdoutAppender()));

    orlo::dabo::krin::detail::KrinDaboTestHooks hooks;
    int subscriptions = 0;
    hooks.subscriptionObserver = [&subscriptions](const std::string&, bool subscribed, const std::string&) {
        // On the runtime's thread alone.
        subscriptions += subscribed ? 1 : -1;
        printLine("subscribers " + std::to_string(subscriptions));
    };
    const lumo::security::Runtime runtime = orlo::dabo::krin::detail::KrinDaboTesting::create({}, hooks);
    auto publisher = lumo::security::publisherOf<Sample>(
        "HokuTopicIn", std::string("krin.ps://127.0.0.1:") + argv[1] + "/security/descriptors", {}, runtime);
    printLine("ready");

    std::vector<int> files;
    std::string line;
    while (std::getline(std::cin, line)) {
        if (line == "exhaust") {
            for (int file = ::open("/dev/null", O_RDONLY | O_CLOEXEC); file >= 0;
                 file = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) {
                files.push_back(file);
            }
            printLine("exhausted " + std::to_string(files.size()));
            continue;
        }
        if (line == "release") {
            for (const int file : files) {
                ::close(file);
            }
            files.clear();
            printLine("released");
            continue;
        }
        std::istringstream command(line);
        std::string word;
        std::uint32_t first = 0;
        std::uint32_t count = 0;
        if (command >> word >> first >> count && word == "publish") {
            lumo::security::publishSampleIds(*publisher, first, count);
            printLine("published");
        }
    }
    publisher->close();
    return 0;
}
