// krin-scope: subscribes to live topics and serves a page that plots any of
// their numeric fields, found in the schema the plug-in exports.

#include <CLI/CLI.hpp>
#include <sys/resource.h>

#include <atomic>
#include <csignal>
#include <iostream>
#include <thread>

#include "dabo/DaboException.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"
#include "lumotypes/host/WireTap.h"
#include "tools/common/CommandLine.h"
#include "tools/common/Schema.h"
#include "tools/common/StopSignal.h"
#include "tools/common/ToolCommandLine.h"
#include "tools/common/ToolLogging.h"
#include "tools/common/TopicUri.h"
#include "tools/common/TypeHash.h"
#include "tools/scope/ScopeServer.h"
#include "tools/scope/TopicFeed.h"

namespace {

using namespace lumo::tools;
using namespace lumotypes::host;
using lumo::scope::TopicFeed;

struct Options {
    std::string listen = "127.0.0.1:0";
    orlo::dabo::Dabo::Properties properties;
    std::string plugin;
    std::size_t maxPages = 16;
    std::vector<std::string> subscriptions;
};

std::string topicList() {
    std::string list;
    for (const auto& name : topicNames()) {
        list += " " + name;
    }
    return list;
}

std::string footer() {
    return "URI is krin.ps://HOST:PORT/PATH; without a PATH, /TOPIC is used.\n"
           "TOPIC is one of:" +
           topicList() +
           ".\n\n"
           "The page lists every numeric field of every subscribed topic; pick fields to\n"
           "plot them against the samples' source time. Scalars become lines (at most\n"
           "200 points a second each, keeping each 10 ms's minimum and maximum), arrays\n"
           "their latest vector, enumerations steps with their names. The page binds to\n"
           "127.0.0.1 unless --listen says otherwise: whoever reaches the address can\n"
           "read every subscribed topic. GET /stats.json gives the counts per topic.\n\n"
           "Exit status: 0 when interrupted; 2 for a bad argument, URI, topic or\n"
           "property; 3 if the plug-in, the runtime or the listening socket could not be\n"
           "set up.";
}

/// HOST:PORT of --listen; refused unless the port is a number up to 65535.
void splitListen(const std::string& text, std::string& host, unsigned short& port) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        throw UsageError("option --listen takes HOST:PORT, not '" + text + "'");
    }
    host = text.substr(0, colon);
    const std::string portText = text.substr(colon + 1);
    if (portText.empty() || portText.size() > 5 || portText.find_first_not_of("0123456789") != std::string::npos ||
        std::stoul(portText) > 65535) {
        throw UsageError("option --listen takes a port up to 65535, not '" + portText + "'");
    }
    port = static_cast<unsigned short>(std::stoul(portText));
}

/// Many pages, or many connections that try, must not run the process out
/// of descriptors before it can refuse them.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

int run(const Options& options) {
    const orlo::dabo::Dabo::Properties& properties = options.properties;
    std::string host;
    unsigned short port = 0;
    splitListen(options.listen, host, port);
    std::vector<std::pair<std::string, std::string>> topicsAndUris;
    for (std::size_t i = 0; i + 1 < options.subscriptions.size(); i += 2) {
        const std::string& topic = options.subscriptions[i + 1];
        if (!withTopic(topic, [](auto) {})) {
            throw UsageError("unknown topic '" + topic + "'; see --help for the topics");
        }
        try {
            topicsAndUris.emplace_back(topic, topicUri(options.subscriptions[i], topic, false));
        } catch (const orlo::dabo::DaboException& refusal) {
            throw UsageError(refusal.what());
        }
    }
    try {
        checkProperties(properties, "krin-scope");
    } catch (const orlo::dabo::DaboException& refusal) {
        throw UsageError(refusal.what());
    }

    Plugin plugin(options.plugin);
    Schema schema(plugin);
    Runtime runtime;
    try {
        runtime = createRuntime(properties);
    } catch (const orlo::dabo::DaboException& refusal) {
        throw UsageError(refusal.what());
    }
    std::vector<std::unique_ptr<TopicFeed>> feeds;
    for (const auto& [topic, uri] : topicsAndUris) {
        auto tap = WireTap::open(runtime, uri, [](const std::string& reason) {
            std::cerr << "krin-scope: dropped a message: " << reason << std::endl;
        });
        feeds.push_back(std::make_unique<TopicFeed>(feeds.size(), topic, uri,
                                                    schema.newMessage(plugin.messageType(topic)), typeHashOf(topic),
                                                    std::move(tap)));
    }
    raiseDescriptorLimit();
    lumo::scope::ServerLimits limits;
    limits.viewers = options.maxPages;
    lumo::scope::ScopeServer server(feeds, limits);
    server.listen(host, port);
    for (auto& feed : feeds) {
        feed->start();
    }
    server.start();
    std::cout << "krin-scope: serving http://" << (host.find(':') != std::string::npos ? "[" + host + "]" : host)
              << ":" << server.port() << "/" << std::endl;
    while (!StopSignal::install().waitUntil(std::chrono::steady_clock::now() + std::chrono::hours(1))) {
    }
    server.stop();
    for (auto& feed : feeds) {
        feed->stop();
    }
    for (const auto& feed : feeds) {
        const auto counts = feed->counts();
        std::cerr << "krin-scope: " << feed->topic() << " at " << feed->uri() << ": " << counts.samples
                  << " samples (sampleSequence " << counts.firstSequence << " to " << counts.lastSequence << "), "
                  << counts.gaps << " gaps, " << counts.missing << " missing, " << counts.refused << " refused"
                  << std::endl;
    }
    std::cerr << "krin-scope: " << server.statsJson() << std::endl;
    return exitOk;
}

}  // namespace

int main(int argc, char** argv) {
    StopSignal::install();
    std::signal(SIGPIPE, SIG_IGN);
    configureToolLogging();
    Options options;
    ToolCommandLine commandLine("krin-scope",
                                "Plots live topics in a browser: subscribes to each TOPIC at its URI and serves a page.");
    CLI::App& app = commandLine.app();
    app.add_option("--listen", options.listen, "the page's address (default 127.0.0.1 on a free port)")
        ->type_name("HOST:PORT");
    commandLine.addProperties(options.properties, "krin.runtime.highWaterMark=5000");
    commandLine.addCurveOptions(options.properties);
    commandLine.addPlugin(options.plugin);
    app.add_option("--max-pages", options.maxPages, "pages open at once; more are refused (default 16)")
        ->type_name("N")
        ->check(CLI::Range(1, 1000));
    app.add_option("URI TOPIC", options.subscriptions, "a subscription; give several pairs for several")
        ->type_name("")
        ->required();
    app.footer(footer());
    if (const auto exitCode = commandLine.parse(argc, argv)) {
        return *exitCode;
    }
    try {
        if (options.subscriptions.size() % 2 != 0) {
            throw UsageError("expected URI TOPIC pairs, got " + std::to_string(options.subscriptions.size()) +
                             " arguments");
        }
        return run(options);
    } catch (const UsageError& error) {
        std::cerr << "krin-scope: " << error.what() << "\n(krin-scope --help explains the arguments)" << std::endl;
        return exitUsage;
    } catch (const std::exception& error) {
        std::cerr << "krin-scope: " << error.what() << std::endl;
        return exitSetup;
    }
}
