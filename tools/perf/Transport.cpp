#include "tools/perf/Transport.h"

namespace lumo::perf {

namespace {

std::string uriOf(int port, const std::string& topic) {
    return "krin.ps://127.0.0.1:" + std::to_string(port) + topic;
}

std::size_t varintSize(std::size_t value) {
    std::size_t bytes = 1;
    while (value >= 0x80) {
        value >>= 7;
        ++bytes;
    }
    return bytes;
}

}  // namespace

std::size_t wireSizeOf(std::size_t arrayBytes) {
    // quality (1+1), sim (1+1), timestamp_utc (1+8), sample_id (1+4), then
    // the packed coefficients: tag, length, floats.
    const std::size_t scalars = 2 + 2 + 9 + 5;
    return arrayBytes == 0 ? scalars : scalars + 1 + varintSize(arrayBytes) + arrayBytes;
}

std::size_t loopWireSizeOf(std::size_t arrayBytes) {
    // The same leading fields and array as HokuTopicIn's, then gp1_az ..
    // pds_az and tel_north_angle, a one-byte tag and four bytes each.
    return wireSizeOf(arrayBytes) + 5 * (1 + 4);
}

std::string readModeOf(const PerfOptions& options) {
    if (options.impl == "plugin") {
        return options.readMode;
    }
    return options.impl == "raw" ? "events" : "socket";
}

Result resultHead(const std::string& test, const PerfOptions& options) {
    Result head;
    head.text("test", test)
        .text("impl", options.impl)
        .text("read", readModeOf(options))
        .flag("in_process", options.inProcess)
        .number("size", static_cast<double>(options.size), 0);
    return head;
}

ProcessEndpoints::ProcessEndpoints(const PerfOptions& options, const lumotypes::host::Plugin* plugin) {
    if (options.impl != "zmq") {
        joins.emplace(options.runtimeProperties);
        endpoints = Endpoints{joins->runtime(), plugin, &*joins};
    }
}

std::unique_ptr<Sender> makeSender(const PerfOptions& options, const Endpoints& endpoints, int port,
                                   const std::string& topic) {
    if (options.impl == "zmq") {
        return makeZmqSender(options, port, topic);
    }
    if (options.impl == "raw") {
        return makeRawSender(options, endpoints, port, topic);
    }
    return makePluginSender(options, endpoints, uriOf(port, topic));
}

std::unique_ptr<Receiver> makeReceiver(const PerfOptions& options, const Endpoints& endpoints, int port,
                                       const std::string& topic, OnSample onSample) {
    if (options.impl == "zmq") {
        return makeZmqReceiver(options, port, topic, std::move(onSample));
    }
    if (options.impl == "raw") {
        return makeRawReceiver(endpoints, uriOf(port, topic), topic, std::move(onSample));
    }
    return makePluginReceiver(options, endpoints, uriOf(port, topic), std::move(onSample));
}

}  // namespace lumo::perf
