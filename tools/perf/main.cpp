// krin-perf: throughput and latency of the plug-in across two processes on
// TCP loopback, and of the raw pipeline under it, in the manner of the
// usual middleware performance tools. See PerfOptions.cpp for the usage.
#include <unistd.h>

#include <log4cplus/consoleappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>

#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "lumotypes/host/Plugin.h"
#include "tools/perf/PerfOptions.h"
#include "tools/perf/Runs.h"

namespace {

std::string selfPath() {
    char path[4096];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) {
        throw std::runtime_error("cannot find this program's path");
    }
    return std::string(path, static_cast<std::size_t>(length));
}

}  // namespace

int main(int argc, char* argv[]) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.empty() || arguments.front() == "--help" || arguments.front() == "-h") {
        lumo::perf::printUsage(arguments.empty() ? std::cerr : std::cout);
        return arguments.empty() ? 2 : 0;
    }
    // Errors of the plug-in and the runtime reach stderr, never stdout, which
    // carries the results between the processes. Below ERROR nothing is built:
    // a subscriber closing while its publisher still sends warns once per
    // message left unread, as it should, and that is expected here.
    log4cplus::Initializer logging;
    log4cplus::SharedAppenderPtr toStderr(new log4cplus::ConsoleAppender(true));
    log4cplus::Logger::getRoot().addAppender(toStderr);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::ERROR_LOG_LEVEL);
    try {
        lumo::perf::PerfOptions options = lumo::perf::parseOptions(arguments);
        if (options.plugin.empty()) {
            options.plugin = lumotypes::host::Plugin::defaultPath();
        }
        // The raw pipeline loads nothing: no part of the plug-in is in that process.
        std::unique_ptr<lumotypes::host::Plugin> plugin;
        if (options.impl == "plugin") {
            plugin = std::make_unique<lumotypes::host::Plugin>(options.plugin);
        }
        if (options.role == "sub") {
            return lumo::perf::runThroughputSubscriber(options, plugin.get());
        }
        if (options.role == "pong") {
            return lumo::perf::runPong(options, plugin.get());
        }
        return options.test == "throughput" ? lumo::perf::runThroughputPublisher(options, selfPath(), plugin.get())
                                            : lumo::perf::runPing(options, selfPath(), plugin.get());
    } catch (const std::invalid_argument& error) {
        std::cerr << "krin-perf: " << error.what() << "\n";
        lumo::perf::printUsage(std::cerr);
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "krin-perf: " << error.what() << "\n";
        return 1;
    }
}
