// krin-pub: publishes samples of a topic, given as JSON and checked against
// the schema that the plug-in exports, through the plug-in's own publisher.

#include <atomic>
#include <chrono>
#include <csignal>
#include <iostream>
#include <string>
#include <thread>

#include "dabo/DaboException.h"
#include "lumotypes/host/Payload.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Properties.h"
#include "lumotypes/host/Runtime.h"
#include "tools/common/CommandLine.h"
#include "tools/common/CurveOptions.h"
#include "tools/common/Schema.h"
#include "tools/common/ToolLogging.h"
#include "tools/common/TopicUri.h"

namespace {

using namespace lumo::tools;
using namespace lumotypes::host;

std::atomic<bool> interrupted{false};

void onSignal(int) { interrupted = true; }

/// Without a -p of its own, a publisher waits this long after registering, so
/// that subscribers which are already trying to connect have joined before
/// the first sample leaves.
constexpr const char* defaultSlowJoinerDelayMs = "500";

void usage(std::ostream& out) {
    out << "Usage: krin-pub [OPTIONS] URI TOPIC VALUE\n"
           "\n"
           "Publishes VALUE, a sample of TOPIC written as JSON, at URI through the\n"
           "plug-in's publisher. VALUE is parsed against the schema that the plug-in\n"
           "exports; every required field must be given, and a value that does not\n"
           "fit is refused with the field and the reason.\n"
           "\n"
           "  URI    krin.ps://HOST:PORT/PATH (HOST * binds all interfaces); without a\n"
           "         PATH, /TOPIC is used\n"
           "  TOPIC  the topic type, one of:";
    for (const auto& name : topicNames()) {
        out << " " << name;
    }
    out << "\n"
           "  VALUE  e.g. '{\"controlMode\":\"TEL_DRIVEN_WITH_HOKU_TT\",\"activeCameraFs\":\"IMG_PDS\"}'\n"
           "         for LumoMode; enumerations by name or number; krin-tap prints this form\n"
           "\n"
           "Options:\n"
           "  --rate HZ      samples per second (default 1)\n"
           "  --count N      samples to publish, 0 for no end (default 1)\n"
           "  -p KEY=VALUE   a property of the runtime or the publisher; krin-pub sets\n"
           "                 krin.ps.slowJoinerDelayMs="
        << defaultSlowJoinerDelayMs
        << " unless given\n"
           "  --plugin PATH  the plug-in to load (default: "
        << Plugin::defaultPath()
        << ")\n"
           "  --help         this text\n"
           "\n";
    printCurveOptions(out);
    out << "\n"
           "Exit status: 0 when all samples are published or when interrupted; 2 for a\n"
           "bad argument, URI, topic, property or value; 3 if the plug-in or the runtime\n"
           "could not be set up or a publish failed.\n";
}

struct Options {
    std::string uri;
    std::string topic;
    std::string value;
    double rate = 1;
    unsigned long count = 1;
    orlo::dabo::Dabo::Properties properties;
    std::string plugin = Plugin::defaultPath();
};

Options parse(int argc, char** argv, bool& help) {
    Options options;
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            help = true;
            return options;
        } else if (argument == "--rate") {
            options.rate = positiveNumber(optionValue(argc, argv, i, argument), argument);
        } else if (argument == "--count") {
            options.count = wholeNumber(optionValue(argc, argv, i, argument), argument);
        } else if (argument == "-p") {
            addProperty(options.properties, optionValue(argc, argv, i, argument));
        } else if (argument == "--plugin") {
            options.plugin = optionValue(argc, argv, i, argument);
        } else if (takeCurveOption(argc, argv, i, options.properties)) {
            continue;
        } else if (argument.size() > 1 && argument[0] == '-') {
            throw UsageError("unknown option " + argument);
        } else {
            positional.push_back(argument);
        }
    }
    if (positional.size() != 3) {
        throw UsageError("expected URI, TOPIC and VALUE, got " + std::to_string(positional.size()) + " arguments");
    }
    options.uri = positional[0];
    options.topic = positional[1];
    options.value = positional[2];
    options.properties.emplace(properties::slowJoinerDelayMs, defaultSlowJoinerDelayMs);
    return options;
}

template <typename T>
void publishAll(const Plugin& plugin, const Options& options, const std::string& uri,
                const std::string& payload, const Runtime& runtime) {
    auto publisher = plugin.publisher<T>(uri, options.properties, runtime);
    auto sample = publisher->createDataEntity();
    if (!fromBytes(*sample, payload)) {
        throw std::runtime_error("the plug-in's " + options.topic + " refused the value's bytes");
    }
    using Clock = std::chrono::steady_clock;
    const auto period = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1.0 / options.rate));
    auto due = Clock::now();
    unsigned long sent = 0;
    while (!interrupted && (options.count == 0 || sent < options.count)) {
        std::this_thread::sleep_until(due);
        publisher->publish(*sample, std::chrono::milliseconds(1000));
        ++sent;
        due += period;
    }
    // The runtime's thread moves the frames on; give it a moment before the
    // runtime closes its sockets, which drops what they still hold.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    publisher->close();
    std::cerr << "krin-pub: published " << sent << " sample" << (sent == 1 ? "" : "s") << " of " << options.topic
              << " at " << uri << std::endl;
}

int run(const Options& options) {
    if (!withTopic(options.topic, [](auto) {})) {
        throw UsageError("unknown topic '" + options.topic + "'; see --help for the topics");
    }
    // The runtime's refusals of a URI or a property value are the user's to fix.
    std::string uri;
    try {
        uri = topicUri(options.uri, options.topic, true);
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
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    configureToolLogging();
    bool help = false;
    try {
        const Options options = parse(argc, argv, help);
        if (help) {
            usage(std::cout);
            return exitOk;
        }
        return run(options);
    } catch (const UsageError& error) {
        std::cerr << "krin-pub: " << error.what() << "\n(krin-pub --help explains the arguments)" << std::endl;
        return exitUsage;
    } catch (const std::exception& error) {
        std::cerr << "krin-pub: " << error.what() << std::endl;
        return exitSetup;
    }
}
