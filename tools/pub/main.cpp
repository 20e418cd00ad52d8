// krin-pub: publishes samples of a topic, given as JSON and checked against
// the schema that the plug-in exports, through the plug-in's own publisher.

#include <chrono>
#include <iostream>
#include <string>
#include <thread>

#include "dabo/DaboException.h"
#include "lumotypes/host/Payload.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Properties.h"
#include "lumotypes/host/Runtime.h"
#include "tools/common/CommandLine.h"
#include "tools/common/Schema.h"
#include "tools/common/StopSignal.h"
#include "tools/common/ToolCommandLine.h"
#include "tools/common/ToolLogging.h"
#include "tools/common/TopicUri.h"
#include "tools/pub/Pacer.h"

namespace {

using namespace lumo::tools;
using namespace lumotypes::host;

/// Without a -p of its own, a publisher waits this long after registering, so
/// that subscribers which are already trying to connect have joined before
/// the first sample leaves.
constexpr const char* defaultSlowJoinerDelayMs = "500";
constexpr const char* slowJoinerDelayKey = properties::slowJoinerDelayMs;

struct Options {
    std::string uri;
    std::string topic;
    std::string value;
    double rate = 1;
    unsigned long long count = 1;
    bool catchUp = false;
    orlo::dabo::Dabo::Properties properties;
    std::string plugin;
};

void define(ToolCommandLine& line, Options& options) {
    auto& app = line.app();
    line.addUri(options.uri, "to publish at (HOST * binds all interfaces); without a PATH, /TOPIC is used");
    line.addTopic(options.topic);
    app.add_option("VALUE", options.value,
                   "a sample of TOPIC written as JSON, e.g. "
                   "'{\"controlMode\":\"TEL_DRIVEN_WITH_HOKU_TT\",\"activeCameraFs\":\"IMG_PDS\"}' for LumoMode; "
                   "enumerations by name or number; krin-tap prints this form")
        ->required()
        ->type_name("");
    app.add_option("--rate", options.rate, "samples per second")
        ->type_name("HZ")
        ->check(numberIn(pacerMinRate, pacerMaxRate, "samples per second"));
    app.add_option("--count", options.count, "samples to publish; 0: no end")
        ->type_name("N")
        ->check(wholeNumberIn(0, 1000000000000ULL, "samples"));
    app.add_flag("--catch-up", options.catchUp,
                 "after a stall (the process stopped, the machine busy), publish the samples that fell due "
                 "meanwhile at once; by default the rate resumes from the moment the stall ended");
    line.addProperties(options.properties, std::string("krin.runtime.highWaterMark=5000; krin-pub sets "
                                                       "krin.ps.slowJoinerDelayMs=") +
                                               defaultSlowJoinerDelayMs + " unless given");
    line.addPlugin(options.plugin);
    line.addCurveOptions(options.properties);
    app.footer(exitStatusText("") + " A publish that fails ends with 3.");
}

template <typename T>
void publishAll(const Plugin& plugin, const Options& options, const std::string& uri,
                const std::string& payload, const Runtime& runtime) {
    StopSignal& stop = StopSignal::install();
    // The factory waits out the slow-joiner delay; a signal meanwhile leaves
    // it behind (runUntilStopped) and nothing has been published.
    std::cerr << "krin-pub: opening " << uri << "; subscribers have " << options.properties.at(slowJoinerDelayKey)
              << " ms (" << slowJoinerDelayKey << ") to join before the first sample" << std::endl;
    auto publisher = plugin.publisher<T>(uri, options.properties, runtime);
    auto sample = publisher->createDataEntity();
    if (!fromBytes(*sample, payload)) {
        throw std::runtime_error("the plug-in's " + options.topic + " refused the value's bytes");
    }
    std::cerr << "krin-pub: publishing " << options.topic << " at " << options.rate << " per second" << std::endl;
    Pacer pacer(options.rate, options.catchUp, Pacer::Clock::now());
    unsigned long long sent = 0;
    while (options.count == 0 || sent < options.count) {
        if (stop.waitUntil(pacer.due())) {
            break;
        }
        publisher->publish(*sample, std::chrono::milliseconds(1000));
        ++sent;
        pacer.next(Pacer::Clock::now());
    }
    // The runtime's thread moves the frames on; give it a moment before the
    // runtime closes its sockets, which drops what they still hold. Stopped
    // by a signal, the tool has only its grace period for that.
    stop.waitUntil(Pacer::Clock::now() + std::chrono::milliseconds(200));
    const auto linger = stop.stopped() ? std::chrono::milliseconds(10) : std::chrono::milliseconds(0);
    std::this_thread::sleep_for(linger);
    publisher->close();
    std::cerr << "krin-pub: published " << sent << " sample" << (sent == 1 ? "" : "s") << " of " << options.topic
              << " at " << uri << std::endl;
}

int run(const Options& options) {
    const std::string uri = checkedTopicUri(options.uri, options.topic, true);
    try {
        checkProperties(options.properties, "krin-pub");
    } catch (const orlo::dabo::DaboException& refusal) {
        throw UsageError(refusal.what());
    }

    Plugin plugin(options.plugin);
    Schema schema(plugin);
    auto message = schema.newMessage(plugin.messageType(options.topic));
    std::string reason;
    if (!fromJson(options.value, *message, reason)) {
        throw UsageError("the value is not a " + options.topic + ": " + reason);
    }
    const std::string payload = message->SerializeAsString();

    Runtime runtime;
    try {
        runtime = createRuntime(options.properties);
    } catch (const orlo::dabo::DaboException& refusal) {
        // Properties of the runtime that only it checks, such as its security keys.
        throw UsageError(refusal.what());
    }
    withTopic(options.topic, [&](auto tag) {
        using T = typename decltype(tag)::type;
        publishAll<T>(plugin, options, uri, payload, runtime);
    });
    return exitOk;
}

}  // namespace

int main(int argc, char** argv) {
    StopSignal::install();
    configureToolLogging();
    Options options;
    ToolCommandLine line("krin-pub",
                         "Publishes VALUE, a sample of TOPIC written as JSON, at URI through the plug-in's publisher. "
                         "VALUE is parsed against the schema that the plug-in exports; every required field must be "
                         "given, and a value that does not fit is refused with the field and the reason.");
    define(line, options);
    if (const auto ended = line.parse(argc, argv)) {
        return *ended;
    }
    options.properties.emplace(slowJoinerDelayKey, defaultSlowJoinerDelayMs);
    return runTool("krin-pub", [&] { return run(options); });
}
