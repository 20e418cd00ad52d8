// krin-perf: throughput, latency and the loop's one-way latency of the plug-in
// across two processes on TCP loopback (or both sides in one process), and of
// the raw pipeline under it, in the manner of the usual middleware
// performance tools. `krin-perf --help` explains the options.
#include <unistd.h>

#include <log4cplus/consoleappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>

#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "dabo/DaboException.h"
#include "lumotypes/host/Plugin.h"
#include "tools/common/CommandLine.h"
#include "tools/common/StopSignal.h"
#include "tools/perf/Lines.h"
#include "tools/perf/PerfOptions.h"
#include "tools/perf/Runs.h"
#include "tools/perf/Transport.h"

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
    lumo::tools::StopSignal::install();
    lumo::perf::PerfOptions options;
    lumo::tools::ToolCommandLine line("krin-perf", "");
    lumo::perf::definePerfOptions(line, options);
    if (const auto ended = line.parse(argc, argv)) {
        return *ended;
    }
    // Errors of the plug-in and the runtime reach stderr, never stdout, which
    // carries the results between the processes. Below ERROR nothing is built:
    // a subscriber closing while its publisher still sends warns once per
    // message left unread, as it should, and that is expected here.
    log4cplus::Initializer logging;
    log4cplus::SharedAppenderPtr toStderr(new log4cplus::ConsoleAppender(true));
    log4cplus::Logger::getRoot().addAppender(toStderr);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::ERROR_LOG_LEVEL);
    const auto run = [&] {
        lumo::perf::checkPerfOptions(options);
        try {
            lumo::tools::checkProperties(options.runtimeProperties, "krin-perf");
        } catch (const orlo::dabo::DaboException& refusal) {
            throw lumo::tools::UsageError(refusal.what());
        }
        // The raw pipeline loads nothing: no part of the plug-in is in that process.
        std::unique_ptr<lumotypes::host::Plugin> plugin;
        if (options.impl == "plugin") {
            plugin = std::make_unique<lumotypes::host::Plugin>(options.plugin);
        }
        try {
            if (!options.role.empty()) {
                const lumo::perf::ProcessEndpoints process(options, plugin.get());
                lumo::perf::DriverLink driver(STDIN_FILENO, STDOUT_FILENO);
                return lumo::perf::runPeerRole(options, process.get(), driver);
            }
            if (options.test == "loop") {
                return lumo::perf::runLoopPublisher(options, selfPath(), plugin.get());
            }
            return options.test == "throughput"
                       ? lumo::perf::runThroughputPublisher(options, selfPath(), plugin.get())
                       : lumo::perf::runPing(options, selfPath(), plugin.get());
        } catch (const orlo::dabo::DaboException& refusal) {
            // A property value that only the runtime checks, such as its high-water mark.
            throw lumo::tools::UsageError(refusal.what());
        } catch (const std::exception& failure) {
            std::cerr << "krin-perf: " << failure.what() << std::endl;
            return static_cast<int>(lumo::tools::exitFailed);
        }
    };
    // A loop run watches for Ctrl-C itself and still reports what it measured,
    // and a peer ends when its driving side closes its input: neither may be
    // cut short by the grace that other runs get after a signal.
    if (options.test == "loop" || !options.role.empty()) {
        return lumo::tools::exitCodeOf("krin-perf", run);
    }
    return lumo::tools::runTool("krin-perf", run);
}
