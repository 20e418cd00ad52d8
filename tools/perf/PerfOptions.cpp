#include "tools/perf/PerfOptions.h"

#include "tools/common/CommandLine.h"

namespace lumo::perf {

void definePerfOptions(lumo::tools::ToolCommandLine& line, PerfOptions& options) {
    using lumo::tools::numberIn;
    using lumo::tools::wholeNumberIn;
    auto& app = line.app();
    app.description(
        "Two processes on TCP loopback. throughput: this process publishes HokuTopicIn samples as fast as it can "
        "(or at --rate), a subscriber process counts what arrives (samples/s, MB/s, samples lost, told by gaps in "
        "sample_id) and what each sample cost both processes. latency: this process pings, a pong process sends "
        "every sample back; reported are round-trip halves. loop: this process publishes FieldStablizationTopicIn "
        "samples at a fixed rate, each carrying its send time, a subscriber process reports the one-way latency "
        "distribution. With --in-process both sides run in this one process over one runtime. Prints one line: "
        "RESULT key=value ..., or with --json one JSON object.");
    app.require_subcommand(1);
    app.footer(lumo::tools::exitStatusText("the run failed (no peer, nothing received)"));
    line.addPlugin(options.plugin);
    // Options given after the subcommand are looked up here too.
    app.fallthrough();
    line.addProperties(options.runtimeProperties, "-p krin.runtime.highWaterMark=10000 (the runtimes of both "
                                                  "processes)");
    app.add_option("--impl", options.impl,
                   "plugin: through the plug-in; raw: three frames of the same sizes through the runtime alone; "
                   "zmq: the same frames over a bare ZeroMQ XPUB->SUB pair, without the runtime (the floor)")
        ->type_name("plugin|raw|zmq")
        ->check(CLI::IsMember({"plugin", "raw", "zmq"}));
    app.add_option("--read", options.readMode, "how the receiving side takes samples")
        ->type_name("read|poll|listener|notifier")
        ->check(CLI::IsMember({"read", "poll", "listener", "notifier"}));
    app.add_option("--size", options.size, "float array bytes per sample, a multiple of 4")
        ->type_name("BYTES")
        ->check(wholeNumberIn(4, 1024 * 1024, "bytes"));
    app.add_flag("--json", options.json, "print the result as one JSON object");
    app.add_flag("--in-process", options.inProcess,
                 "both sides in this one process through one runtime, the peer's role on threads (--impl plugin "
                 "or raw)");
    app.add_option("--role", options.role)->group("");
    // Set by the driving process on its peer's command line only.
    app.add_option_function<std::string>("--ports", [&options](const std::string& ports) {
           const auto comma = ports.find(',');
           if (comma == std::string::npos) {
               throw CLI::ValidationError("--ports", "needs A,B");
           }
           options.portA = std::stoi(ports.substr(0, comma));
           options.portB = std::stoi(ports.substr(comma + 1));
       })->group("");

    auto* throughput = app.add_subcommand("throughput", "samples per second, losses and cost per sample");
    throughput->add_option("--seconds", options.seconds, "measured time")
        ->type_name("S")
        ->check(numberIn(0.01, 3600, "seconds"));
    throughput->add_option("--warmup", options.warmupSeconds, "time not counted after the first sample")
        ->type_name("S")
        ->check(numberIn(0, 3600, "seconds"));
    throughput->add_option("--rate", options.rate, "samples per second the publisher offers; 0: as fast as it can")
        ->type_name("N")
        ->check(numberIn(0, 1e7, "samples per second"));
    throughput->callback([&options] { options.test = "throughput"; });

    auto* latency = app.add_subcommand("latency", "round-trip halves: median, 90th and 99th percentile, maximum");
    latency->add_option("--round-trips", options.roundTrips, "measured round trips, after warm-up round trips")
        ->type_name("N")
        ->check(wholeNumberIn(1, 100000000, "round trips"));
    latency->add_option("--latency-out", options.latencyOut, "every round-trip half in microseconds, one a line")
        ->type_name("FILE");
    latency->add_option("--seconds", options.seconds)->group("");
    latency->add_option("--warmup", options.warmupSeconds)->group("");
    latency->callback([&options] { options.test = "latency"; });

    auto* loop = app.add_subcommand("loop", "one-way latency at a fixed rate: percentiles, late and lost samples");
    loop->add_option("--rate", options.rate, "samples per second, on an absolute schedule")
        ->type_name("HZ")
        ->default_str("")
        ->required()
        ->check(numberIn(0.1, 1e6, "samples per second"));
    // The member is shared with the throughput run, whose default is shorter:
    // the callback below sets the loop's own.
    loop->add_option("--seconds", options.seconds, "how long the publisher sends")
        ->type_name("S")
        ->default_str("60")
        ->check(numberIn(0.01, 86400, "seconds"));
    loop->add_option("--latency-out", options.latencyOut, "every one-way latency in microseconds, one a line")
        ->type_name("FILE");
    loop->add_option("--warmup", options.warmupSeconds)->group("");
    loop->callback([&options, loop] {
        options.test = "loop";
        if (loop->count("--seconds") == 0) {
            options.seconds = 60.0;
        }
    });
}

void checkPerfOptions(const PerfOptions& options) {
    if (options.size % 4 != 0) {
        throw lumo::tools::UsageError("--size " + std::to_string(options.size) +
                                      " is not a multiple of 4 (the array holds floats)");
    }
    if (options.inProcess && options.impl == "zmq") {
        throw lumo::tools::UsageError(
            "--in-process shares one runtime between both sides; --impl zmq has none (use --impl plugin or raw)");
    }
    if (options.test == "loop" && options.impl != "plugin") {
        throw lumo::tools::UsageError("--impl " + options.impl +
                                      ": loop carries its send time in the plug-in's samples (use --impl plugin)");
    }
    if (options.test == "loop" && options.rate * options.seconds > maxLoopSamples) {
        throw lumo::tools::UsageError("--rate times --seconds is more than " +
                                      std::to_string(static_cast<long>(maxLoopSamples)) + " samples for one loop run");
    }
}

std::vector<std::string> peerArguments(const PerfOptions& options, const std::string& role) {
    std::vector<std::string> arguments{options.test,
            "--impl",
            options.impl,
            "--read",
            options.readMode,
            "--size",
            std::to_string(options.size),
            "--seconds",
            std::to_string(options.seconds),
            "--warmup",
            std::to_string(options.warmupSeconds),
            "--plugin",
            options.plugin,
            "--role",
            role,
            "--ports",
            std::to_string(options.portA) + "," + std::to_string(options.portB)};
    if (options.test == "loop") {
        arguments.insert(arguments.end(), {"--rate", std::to_string(options.rate)});
        if (!options.latencyOut.empty()) {
            arguments.insert(arguments.end(), {"--latency-out", options.latencyOut});
        }
    }
    for (const auto& property : options.runtimeProperties) {
        arguments.push_back("-p");
        arguments.push_back(property.first + "=" + property.second);
    }
    return arguments;
}

}  // namespace lumo::perf
