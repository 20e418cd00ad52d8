// lumo-demo: loads the type-support plug-in as a host does, starts an
// embedded runtime on loopback and runs a telescope's field stabilisation
// loop over all eleven topics, then tells what arrived and how fast.

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <thread>

#include "dabo/DaboException.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"
#include "tools/common/CommandLine.h"
#include "tools/common/FreePort.h"
#include "lumotypes/host/Metrics.h"
#include "tools/common/RuntimeMetricsReport.h"
#include "tools/common/StopSignal.h"
#include "tools/common/ToolLogging.h"
#include "tools/demo/DemoOptions.h"
#include "tools/demo/Report.h"
#include "tools/demo/RoundTrips.h"
#include "tools/demo/ScopeProcess.h"
#include "tools/demo/TelescopeLoop.h"

namespace {

using namespace lumo;

constexpr const char* logConfigName = "lumo-demo.log4cplus.properties";

/// The shipped logging configuration: beside the program in a build tree,
/// under share/ once installed. Empty if neither is there.
std::string shippedLogConfig() {
    char self[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) {
        return "";
    }
    std::string directory(self, static_cast<std::size_t>(length));
    directory.erase(directory.rfind('/') + 1);
    for (const std::string& candidate : {directory + logConfigName, directory + LUMO_DEMO_INSTALLED_LOG_CONFIG}) {
        if (std::ifstream(candidate).good()) {
            return candidate;
        }
    }
    return "";
}

demo::ReportRow rowOf(const demo::Ledger& ledger, const std::string& path) {
    demo::ReportRow row;
    row.topic = ledger.topic();
    row.path = path;
    row.counts = ledger.counts();
    return row;
}

std::string transportOf(const demo::DemoOptions& options) {
    if (options.curve) {
        return "CURVE, authenticated and encrypted (a server key pair and one admitted subscriber key, made for "
               "this run)";
    }
    if (options.properties.count("krin.runtime.curve.serverSecretKey") != 0) {
        return "CURVE, with the keys given";
    }
    return "plain TCP";
}

/// How the runtime's subscriptions reach their publishers now, e.g. "in
/// process for 4 of 4 subscriptions".
std::string pathsOf(const lumotypes::host::RuntimeMetrics& metrics) {
    std::size_t inProcess = 0;
    for (const auto& subscription : metrics.subscriptions) {
        inProcess += subscription.inProcessConnections > 0 ? 1 : 0;
    }
    return "in process for " + std::to_string(inProcess) + " of " + std::to_string(metrics.subscriptions.size()) +
           " subscriptions (krin.runtime.inProcess), " + std::to_string(metrics.subscriptions.size() - inProcess) +
           " over TCP";
}

int runDemo(const demo::DemoOptions& options) {
    auto logger = log4cplus::Logger::getInstance("lumo.demo");
    lumotypes::host::Plugin plugin(options.plugin);
    tools::Schema schema(plugin);
    const int port = options.port != 0 ? options.port : tools::freeLoopbackPort();
    lumotypes::host::Runtime runtime;
    try {
        runtime = lumotypes::host::createRuntime(options.properties);
    } catch (const orlo::dabo::DaboException& refusal) {
        // Properties that only the runtime checks, such as its metrics address.
        throw tools::UsageError(refusal.what());
    }
    demo::DemoContext context{plugin, schema, runtime, options.properties,
                              "krin.ps://127.0.0.1:" + std::to_string(port)};
    std::cout << "lumo-demo: plug-in " << plugin.path() << "\n"
              << "lumo-demo: runtime on " << context.endpoint << ", topics under /lumo/demo/\n"
              << "lumo-demo: transport: " << transportOf(options) << "\n";
    const std::string metricsPage = lumotypes::host::metricsPageOf(runtime);
    if (!metricsPage.empty()) {
        std::cout << "lumo-demo: runtime metrics at " << metricsPage << "\n";
    }
    LOG4CPLUS_INFO(logger, "plug-in " << plugin.path() << ", schema " << schema.fileName() << ", endpoint "
                                      << context.endpoint);

    std::unique_ptr<demo::ScopeProcess> scope;
    if (options.scope) {
        std::vector<std::string> arguments{"--plugin", options.plugin};
        for (const auto& [key, value] : options.properties) {
            arguments.insert(arguments.end(), {"-p", key + "=" + value});
        }
        for (const auto& topic : lumotypes::host::topicNames()) {
            arguments.insert(arguments.end(), {context.uriOf(topic), topic});
        }
        scope = std::make_unique<demo::ScopeProcess>(arguments);
        std::cout << "lumo-demo: scope at " << scope->address() << ", open it in a browser" << std::endl;
    }

    demo::RoundTrips roundTrips(context, 3);
    demo::TelescopeLoop loop(context, options.sensorRate);
    loop.start();
    // Every component lives in this process, on one runtime: its subscribers
    // take the in-process path unless it is turned off.
    const std::string paths = pathsOf(lumotypes::host::metricsOf(runtime));
    std::cout << "lumo-demo: all subscribers joined; running the loop for " << options.duration << " s at "
              << options.sensorRate << " Hz\n"
              << "lumo-demo: samples travel " << paths << std::endl;

    std::thread others([&] {
        try {
            roundTrips.run();
        } catch (const std::exception& failure) {
            LOG4CPLUS_ERROR(logger, "round trips stopped: " << failure.what());
        }
    });
    unsigned second = 0;
    loop.run(std::chrono::duration<double>(options.duration), [&](const demo::LoopProgress& progress) {
        if (options.quiet) {
            return;
        }
        char line[256];
        std::snprintf(line, sizeof line,
                      "[%2u s] sensor %6lu samples  controller %6lu commands  monitor %6lu  round trips %d/%zu  %s",
                      ++second, progress.sensorSamples, progress.controllerCommands, progress.monitorCommands,
                      roundTrips.finished(), demo::RoundTrips::topics().size(), progress.mode.c_str());
        std::cout << line << std::endl;
    });
    others.join();

    std::vector<demo::ReportRow> rows;
    rows.push_back(rowOf(loop.sensorLedger(), "queued, notifier"));
    auto commands = rowOf(loop.commandLedger(), "queued, listener");
    commands.hasLatency = true;
    commands.latency = loop.loopLatency().summary();
    rows.push_back(commands);
    rows.push_back(rowOf(loop.modeLedger(), "most recent value"));
    rows.push_back(rowOf(loop.refPosLedger(), "most recent value"));
    for (const auto& ledger : roundTrips.ledgers()) {
        rows.push_back(rowOf(*ledger, "queued, round trip"));
    }
    std::cout << "\n";
    const bool passed = demo::printReport(rows, std::cout);
    std::cout << "Loop latency: from the sensor's timestamp_utc, carried back in timestamp_in_utc,\n"
                 "to the arrival of the controller's command at the monitor.\n"
              << "Transport: " << transportOf(options) << " between processes; the loop's samples travel " << paths
              << "\n";
    if (!metricsPage.empty()) {
        tools::printRuntimeMetrics(std::cout, "lumo-demo", lumotypes::host::metricsOf(runtime));
    }
    if (scope) {
        std::cout << "lumo-demo: the scope serves " << scope->address() << " until Ctrl-C" << std::endl;
        while (!tools::StopSignal::install().waitUntil(std::chrono::steady_clock::now() + std::chrono::hours(1))) {
        }
        scope->stop();
    }
    return passed ? tools::exitOk : tools::exitFailed;
}

}  // namespace

int main(int argc, char** argv) {
    tools::StopSignal::install();
    demo::DemoOptions options;
    tools::ToolCommandLine line("lumo-demo", "");
    demo::defineDemoOptions(line, options);
    if (const auto ended = line.parse(argc, argv)) {
        return *ended;
    }
    return tools::runTool("lumo-demo", [&] {
        demo::completeDemoOptions(options);
        const std::string logConfig = options.logConfig.empty() ? shippedLogConfig() : options.logConfig;
        if (!options.logConfig.empty() && !std::ifstream(options.logConfig).good()) {
            throw tools::UsageError("cannot read the log configuration " + options.logConfig);
        }
        tools::configureToolLogging(logConfig);
        try {
            tools::checkProperties(options.properties, "lumo-demo");
        } catch (const orlo::dabo::DaboException& refusal) {
            throw tools::UsageError(refusal.what());
        }
        return runDemo(options);
    });
}
