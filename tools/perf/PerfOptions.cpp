#include "tools/perf/PerfOptions.h"

#include <ostream>
#include <stdexcept>

namespace lumo::perf {

namespace {

const std::string& valueAfter(const std::vector<std::string>& arguments, std::size_t& i) {
    if (i + 1 >= arguments.size()) {
        throw std::invalid_argument(arguments[i] + " needs a value");
    }
    return arguments[++i];
}

void require(bool condition, const std::string& message) {
    if (!condition) {
        throw std::invalid_argument(message);
    }
}

}  // namespace

PerfOptions parseOptions(const std::vector<std::string>& arguments) {
    PerfOptions options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        if (option == "throughput" || option == "latency") {
            options.test = option;
        } else if (option == "--impl") {
            options.impl = valueAfter(arguments, i);
        } else if (option == "--read") {
            options.readMode = valueAfter(arguments, i);
        } else if (option == "--size") {
            options.size = std::stoul(valueAfter(arguments, i));
        } else if (option == "--seconds") {
            options.seconds = std::stod(valueAfter(arguments, i));
        } else if (option == "--warmup") {
            options.warmupSeconds = std::stod(valueAfter(arguments, i));
        } else if (option == "--rate") {
            options.rate = std::stod(valueAfter(arguments, i));
        } else if (option == "--round-trips") {
            options.roundTrips = std::stol(valueAfter(arguments, i));
        } else if (option == "--latency-out") {
            options.latencyOut = valueAfter(arguments, i);
        } else if (option == "--plugin") {
            options.plugin = valueAfter(arguments, i);
        } else if (option == "-p") {
            const std::string& property = valueAfter(arguments, i);
            const auto equals = property.find('=');
            require(equals != std::string::npos && equals > 0, "-p needs KEY=VALUE");
            options.runtimeProperties[property.substr(0, equals)] = property.substr(equals + 1);
        } else if (option == "--role") {
            options.role = valueAfter(arguments, i);
        } else if (option == "--ports") {
            const std::string& ports = valueAfter(arguments, i);
            const auto comma = ports.find(',');
            require(comma != std::string::npos, "--ports needs A,B");
            options.portA = std::stoi(ports.substr(0, comma));
            options.portB = std::stoi(ports.substr(comma + 1));
        } else {
            throw std::invalid_argument("unexpected argument " + option);
        }
    }
    require(options.impl == "plugin" || options.impl == "raw", "--impl is plugin or raw");
    require(options.readMode == "read" || options.readMode == "poll" || options.readMode == "listener" ||
                options.readMode == "notifier",
            "--read is read, poll, listener or notifier");
    require(options.size % 4 == 0 && options.size <= 1024 * 1024, "--size is a multiple of 4, at most 1 MiB");
    require(options.seconds > 0 && options.roundTrips > 0, "--seconds and --round-trips must be positive");
    require(options.rate >= 0, "--rate must not be negative");
    return options;
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
    for (const auto& property : options.runtimeProperties) {
        arguments.push_back("-p");
        arguments.push_back(property.first + "=" + property.second);
    }
    return arguments;
}

void printUsage(std::ostream& out) {
    out << "Usage: krin-perf throughput|latency [options]\n"
           "\n"
           "Two processes on TCP loopback. throughput: this process publishes HokuTopicIn\n"
           "samples as fast as it can, a subscriber process counts what arrives (samples/s,\n"
           "MB/s, samples lost, told by gaps in sample_id). latency: this process pings, a\n"
           "pong process sends every sample back; reported are round-trip halves.\n"
           "\n"
           "  --impl plugin|raw   through the plug-in (default), or three frames of the same\n"
           "                      sizes through the runtime without the plug-in\n"
           "  --read MODE         read | poll | listener (default) | notifier\n"
           "  --size BYTES        float array bytes per sample, 64 .. 65536 (default 1024)\n"
           "  --seconds S         measured time of a throughput run (default 3)\n"
           "  --warmup S          time not counted after the first sample (default 0.5)\n"
           "  --rate N            samples per second the publisher offers (default 0: as\n"
           "                      fast as it can)\n"
           "  --round-trips N     measured round trips of a latency run (default 5000)\n"
           "  --latency-out FILE  every round-trip half in microseconds, one a line\n"
           "  --plugin PATH       the plug-in to load\n"
           "  -p KEY=VALUE        a property of the runtimes of both processes, e.g.\n"
           "                      -p krin.runtime.highWaterMark=10000\n"
           "\n"
           "Prints one line: RESULT key=value ...\n";
}

}  // namespace lumo::perf
