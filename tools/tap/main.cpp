// krin-tap: prints the samples of a live topic, decoded with the schema that
// the plug-in exports, or their rates and sequence gaps per second.

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>

#include "dabo/DaboException.h"
#include "lumotypes/host/Payload.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Properties.h"
#include "lumotypes/host/Runtime.h"
#include "lumotypes/host/WireTap.h"
#include "tools/common/CommandLine.h"
#include "lumotypes/host/Metrics.h"
#include "tools/common/RuntimeMetricsReport.h"
#include "tools/common/Schema.h"
#include "tools/common/StopSignal.h"
#include "tools/common/ToolCommandLine.h"
#include "tools/common/ToolLogging.h"
#include "tools/common/TopicUri.h"
#include "tools/common/TypeHash.h"
#include "tools/tap/OutputWriter.h"
#include "tools/tap/RateMeter.h"

namespace {

using namespace lumo::tools;
using namespace lumotypes::host;
using Clock = std::chrono::steady_clock;

/// The samples the tap holds for a slow output before it drops the oldest.
constexpr unsigned long defaultQueue = 10000;
/// The longest --duration: a century, far inside the clock's range.
constexpr double maxDurationSeconds = 3.2e9;

struct Options {
    std::string uri;
    std::string topic;
    std::string format = "json";
    bool hz = false;
    unsigned long long count = 0;
    double duration = 0;
    unsigned long long queue = defaultQueue;
    orlo::dabo::Dabo::Properties properties;
    std::string plugin;
};

void define(ToolCommandLine& line, Options& options) {
    auto& app = line.app();
    line.addUri(options.uri, "to subscribe to; without a PATH, /TOPIC is used");
    line.addTopic(options.topic);
    app.add_option("--format", options.format,
                   "json: one JSON object per line; text: the message library's text format, headed by the "
                   "sample's sequence number and source timestamp")
        ->type_name("json|text")
        ->check(CLI::IsMember({"json", "text"}));
    app.add_flag("--hz", options.hz,
                 "print, once a second, the samples received, the rate and the gaps in the header's "
                 "sampleSequence, instead of samples");
    app.add_option("--count", options.count, "stop after N samples; 0: run until interrupted")
        ->type_name("N")
        ->check(wholeNumberIn(0, 1000000000000ULL, "samples"));
    app.add_option("--duration", options.duration, "stop after SEC seconds; 0: no limit")
        ->type_name("SEC")
        ->check(numberIn(0, maxDurationSeconds, "seconds"));
    app.add_option("--queue", options.queue,
                   "samples held for a slow output; when it is full the oldest is dropped, and the drops are "
                   "counted on stderr")
        ->type_name("N")
        ->check(wholeNumberIn(1, 10000000ULL, "samples"));
    line.addProperties(options.properties,
                       "krin.runtime.highWaterMark=5000; krin.ps.disableTypeHashCheck=true also decodes samples "
                       "whose header names another type");
    line.addPlugin(options.plugin);
    line.addCurveOptions(options.properties);
    line.addMetricsAddress(options.properties);
    app.footer(exitStatusText("--count samples did not come within --duration"));
}

std::string formatted(const Options& options, const WireSample& sample, const google::protobuf::Message& message) {
    if (options.format == "json") {
        return toJson(message) + "\n";
    }
    char timestamp[32];
    std::snprintf(timestamp, sizeof timestamp, "%.6f", sample.sourceTimestamp);
    return "--- " + options.topic + " sampleSequence: " + std::to_string(sample.sampleSequence) +
           " sourceTimestamp: " + timestamp + "\n" + toText(message);
}

int run(const Options& options) {
    StopSignal& stop = StopSignal::install();
    const std::string uri = checkedTopicUri(options.uri, options.topic, false);
    try {
        checkProperties(options.properties, "krin-tap");
    } catch (const orlo::dabo::DaboException& refusal) {
        throw UsageError(refusal.what());
    }
    const bool decodeOtherTypes =
        properties::booleanValue(options.properties, properties::disableTypeHashCheck, false);

    Plugin plugin(options.plugin);
    Schema schema(plugin);
    auto message = schema.newMessage(plugin.messageType(options.topic));
    const std::uint32_t expectedType = typeHashOf(options.topic);

    Runtime runtime;
    try {
        runtime = createRuntime(options.properties);
    } catch (const orlo::dabo::DaboException& refusal) {
        // Properties of the runtime that only it checks, such as its security keys.
        throw UsageError(refusal.what());
    }
    // Told from the runtime's thread, at most once a second: the tool's own
    // thread may be held by the reader that makes the queue overflow.
    auto nextDropReport = std::make_shared<Clock::time_point>();
    std::shared_ptr<WireTap> tap = WireTap::open(
        runtime, uri, [](const std::string& reason) { std::cerr << "krin-tap: dropped a message: " << reason << std::endl; },
        static_cast<std::size_t>(options.queue), [nextDropReport, queue = options.queue](unsigned long dropped) {
            const auto now = Clock::now();
            if (now >= *nextDropReport) {
                std::cerr << "krin-tap: dropped " << dropped << " samples so far: the output is slower than the "
                          << "topic (--queue " << queue << ")" << std::endl;
                *nextDropReport = now + std::chrono::seconds(1);
            }
        });
    stop.onStop([tap] { tap->interrupt(); });
    std::cerr << "krin-tap: listening to " << options.topic << " at " << uri << std::endl;
    const std::string metricsPage = lumotypes::host::metricsPageOf(runtime);
    if (!metricsPage.empty()) {
        std::cerr << "krin-tap: runtime metrics at " << metricsPage << std::endl;
    }

    OutputWriter output(STDOUT_FILENO, stop.descriptor());
    const auto start = Clock::now();
    const auto end = options.duration > 0
                         ? start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.duration))
                         : Clock::time_point::max();
    RateMeter meter(options.topic, start);
    unsigned long long taken = 0;
    WireSample sample;
    while (!stop.stopped() && output.open() && Clock::now() < end && (options.count == 0 || taken < options.count)) {
        const bool got = tap->next(sample, std::chrono::milliseconds(100));
        if (options.hz) {
            if (got) {
                meter.record(sample.sampleSequence);
                ++taken;
            }
            std::ostringstream lines;
            meter.reportDue(Clock::now(), lines);
            output.write(lines.str());
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
        output.write(formatted(options, sample, *message));
    }
    tap->interrupt();
    if (options.hz && output.open()) {
        std::ostringstream lines;
        meter.reportRest(Clock::now(), lines);
        output.write(lines.str());
    }
    if (tap->dropped() > 0) {
        std::cerr << "krin-tap: dropped " << tap->dropped() << " samples in all: the output was slower than the topic "
                  << "(--queue " << options.queue << ")" << std::endl;
    }
    tap->close();
    if (!metricsPage.empty()) {
        printRuntimeMetrics(std::cerr, "krin-tap", lumotypes::host::metricsOf(runtime));
    }
    if (options.count != 0 && taken < options.count && !stop.stopped() && output.open()) {
        std::cerr << "krin-tap: " << taken << " of " << options.count << " samples within " << options.duration
                  << " s" << std::endl;
        return exitFailed;
    }
    return exitOk;
}

}  // namespace

int main(int argc, char** argv) {
    lumo::tools::StopSignal::install();
    // A reader that goes away ends the output with an error, not the process.
    ::signal(SIGPIPE, SIG_IGN);
    configureToolLogging();
    Options options;
    ToolCommandLine line("krin-tap",
                         "Subscribes to TOPIC at URI and prints every sample field by field, decoded with the schema "
                         "that the plug-in exports.");
    define(line, options);
    if (const auto ended = line.parse(argc, argv)) {
        return *ended;
    }
    return runTool("krin-tap", [&] { return run(options); });
}
