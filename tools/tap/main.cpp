// krin-tap: prints the samples of a live topic, decoded with the schema that
// the plug-in exports, or their rates and sequence gaps per second.

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>

#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/krin/detail/ps/topicTraits.h"
#include "tools/common/CommandLine.h"
#include "tools/common/CurveOptions.h"
#include "tools/common/Schema.h"
#include "tools/common/ToolLogging.h"
#include "tools/common/TopicUri.h"
#include "tools/common/Topics.h"
#include "tools/tap/RateMeter.h"
#include "tools/common/WireTap.h"

namespace {

using namespace lumo::tools;

std::atomic<bool> interrupted{false};

void onSignal(int) { interrupted = true; }

void usage(std::ostream& out) {
    out << "Usage: krin-tap [OPTIONS] URI TOPIC\n"
           "\n"
           "Subscribes to TOPIC at URI and prints every sample field by field, decoded\n"
           "with the schema that the plug-in exports.\n"
           "\n"
           "  URI    krin.ps://HOST:PORT/PATH; without a PATH, /TOPIC is used\n"
           "  TOPIC  the topic type, one of:";
    for (const auto& name : topicNames()) {
        out << " " << name;
    }
    out << "\n"
           "\n"
           "Options:\n"
           "  --format json|text  one JSON object per line (default), or the message\n"
           "                      library's text format, headed by the sample's sequence\n"
           "                      number and source timestamp\n"
           "  --hz                print, once a second, the samples received, the rate and\n"
           "                      the gaps in the header's sampleSequence, instead of samples\n"
           "  --count N           stop after N samples (default: run until interrupted)\n"
           "  --duration SEC      stop after SEC seconds\n"
           "  -p KEY=VALUE        a runtime property, e.g. -p krin.runtime.highWaterMark=5000;\n"
           "                      -p krin.ps.disableTypeHashCheck=true also decodes samples\n"
           "                      whose header names another type\n"
           "  --plugin PATH       the plug-in whose schema decodes the samples\n"
           "                      (default: "
        << PluginLoader::defaultPath()
        << ")\n"
           "  --help              this text\n"
           "\n";
    printCurveOptions(out);
    out << "\n"
           "Exit status: 0 when interrupted, after --duration or after --count samples;\n"
           "1 if --count samples did not come within --duration; 2 for a bad argument,\n"
           "URI, topic or property; 3 if the plug-in or the runtime could not be set up.\n";
}

struct Options {
    std::string uri;
    std::string topic;
    std::string format = "json";
    bool hz = false;
    unsigned long count = 0;
    double duration = 0;
    orlo::dabo::Dabo::Properties properties;
    std::string plugin = PluginLoader::defaultPath();
};

Options parse(int argc, char** argv, bool& help) {
    Options options;
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            help = true;
            return options;
        } else if (argument == "--format") {
            options.format = optionValue(argc, argv, i, argument);
            if (options.format != "json" && options.format != "text") {
                throw UsageError("option --format takes json or text, not '" + options.format + "'");
            }
        } else if (argument == "--hz") {
            options.hz = true;
        } else if (argument == "--count") {
            options.count = wholeNumber(optionValue(argc, argv, i, argument), argument);
        } else if (argument == "--duration") {
            options.duration = positiveNumber(optionValue(argc, argv, i, argument), argument);
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
    if (positional.size() != 2) {
        throw UsageError("expected URI and TOPIC, got " + std::to_string(positional.size()) + " arguments");
    }
    options.uri = positional[0];
    options.topic = positional[1];
    return options;
}

/// The constant that the plug-in's publishers put in the header of `topic`.
std::uint32_t typeHashOf(const std::string& topic) {
    std::uint32_t hash = 0;
    withTopic(topic, [&](auto tag) {
        using T = typename decltype(tag)::type;
        hash = orlo::dabo::krin::detail::ps::TopicTraits<T>::dataEntityTypeHash;
    });
    return hash;
}

int run(const Options& options) {
    if (!withTopic(options.topic, [](auto) {})) {
        throw UsageError("unknown topic '" + options.topic + "'; see --help for the topics");
    }
    // The runtime's refusals of a URI or a property value are the user's to fix.
    std::string uri;
    try {
        uri = topicUri(options.uri, options.topic, false);
        checkProperties(options.properties, "krin-tap");
    } catch (const orlo::dabo::DaboException& refusal) {
        throw UsageError(refusal.what());
    }
    const bool decodeOtherTypes =
        orlo::dabo::krin::detail::getDaboBoolProperty(options.properties, "krin.ps.disableTypeHashCheck", false);

    PluginLoader plugin(options.plugin);
    Schema schema(plugin);
    const auto* type = schema.find(options.topic);
    if (type == nullptr) {
        throw PluginLoadError("the schema " + schema.fileName() + " has no message " + options.topic);
    }
    auto message = schema.newMessage(*type);
    const std::uint32_t expectedType = typeHashOf(options.topic);

    std::shared_ptr<orlo::dabo::krin::detail::KrinDabo> runtime;
    try {
        runtime = orlo::dabo::krin::detail::KrinDabo::create(options.properties);
    } catch (const orlo::dabo::DaboException& refusal) {
        // Properties of the runtime that only it checks, such as its security keys.
        throw UsageError(refusal.what());
    }
    auto tap = WireTap::open(runtime, uri);
    std::cerr << "krin-tap: listening to " << options.topic << " at " << uri << std::endl;

    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const auto end = options.duration > 0
                         ? start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.duration))
                         : Clock::time_point::max();
    RateMeter meter(options.topic, start);
    unsigned long taken = 0;
    WireSample sample;
    while (!interrupted && Clock::now() < end && (options.count == 0 || taken < options.count)) {
        const bool got = tap->next(sample, std::chrono::milliseconds(100));
        if (options.hz) {
            if (got) {
                meter.record(sample.sampleSequence);
                ++taken;
            }
            meter.reportDue(Clock::now(), std::cout);
            continue;
        }
        if (!got) {
            continue;
        }
        if (sample.dataEntityTypeHash != expectedType && !decodeOtherTypes) {
            std::cerr << "krin-tap: sample " << sample.sampleSequence << " names type "
                      << static_cast<std::int32_t>(sample.dataEntityTypeHash) << ", not " << options.topic << "'s "
                      << static_cast<std::int32_t>(expectedType) << "; skipped" << std::endl;
            continue;
        }
        if (!message->ParseFromString(sample.payload)) {
            std::cerr << "krin-tap: sample " << sample.sampleSequence << " is not a valid " << options.topic
                      << " (" << sample.payload.size() << " bytes); skipped" << std::endl;
            continue;
        }
        ++taken;
        if (options.format == "json") {
            std::cout << toJson(*message) << std::endl;
        } else {
            char timestamp[32];
            std::snprintf(timestamp, sizeof timestamp, "%.6f", sample.sourceTimestamp);
            std::cout << "--- " << options.topic << " sampleSequence: " << sample.sampleSequence
                      << " sourceTimestamp: " << timestamp << "\n"
                      << toText(*message) << std::flush;
        }
    }
    tap->close();
    if (options.hz) {
        meter.reportRest(Clock::now(), std::cout);
    }
    if (options.count != 0 && taken < options.count && !interrupted) {
        std::cerr << "krin-tap: " << taken << " of " << options.count << " samples within " << options.duration
                  << " s" << std::endl;
        return exitFailed;
    }
    return exitOk;
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    configureToolLogging();
    bool help = false;
    Options options;
    try {
        options = parse(argc, argv, help);
        if (help) {
            usage(std::cout);
            return exitOk;
        }
        return run(options);
    } catch (const UsageError& error) {
        std::cerr << "krin-tap: " << error.what() << "\n(krin-tap --help explains the arguments)" << std::endl;
        return exitUsage;
    } catch (const std::exception& error) {
        std::cerr << "krin-tap: " << error.what() << std::endl;
        return exitSetup;
    }
}
