#include "tools/record/RecordOptions.h"

#include <ctime>
#include <iostream>

#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Topics.h"
#include "tools/common/CommandLine.h"
#include "tools/common/ToolCommandLine.h"

namespace lumo::record {

namespace {

std::string topicList() {
    std::string list;
    for (const auto& name : lumotypes::host::topicNames()) {
        list += (list.empty() ? "" : " ") + name;
    }
    return list;
}

/// recording-YYYYMMDD-HHMMSS.mcap, in UTC, in the current directory.
std::string defaultOutput() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char name[64];
    std::strftime(name, sizeof name, "recording-%Y%m%d-%H%M%S.mcap", &utc);
    return name;
}

}  // namespace

std::optional<int> parseRecordOptions(int argc, char** argv, RecordOptions& options) {
    tools::ToolCommandLine commandLine{"krin-record",
        "Forms: krin-record [OPTIONS] URI TOPIC [URI TOPIC]...\n"
        "       krin-record [OPTIONS] --all krin.ps://HOST:PORT/PREFIX\n\n"
        "Records samples of live topics into an MCAP file: one channel per URI, each\n"
        "message with its arrival time (log time), the source timestamp of its header\n"
        "(publish time) and its sampleSequence, in zstd- or lz4-compressed chunks with\n"
        "indexes and a summary. A chunk is written at least once a second, so a recorder\n"
        "that is killed loses at most the last second; Ctrl-C or SIGTERM closes the file\n"
        "properly. Progress goes to stderr once a second."};
    CLI::App& app = commandLine.app();
    app.footer("\nTOPIC is one of: " + topicList() +
               "\nURI is krin.ps://HOST:PORT/PATH; without a PATH, /TOPIC is used.\n"
               "\nExit status: 0 when the recording ended (--duration, --count, Ctrl-C) and the\n"
               "file is closed; 1 if --count samples did not come within --duration; 2 for a\n"
               "bad argument, URI, topic or property; 3 if the plug-in or the runtime could\n"
               "not be set up, or the file could not be written (what was flushed before\n"
               "stays readable).");
    std::vector<std::string> positional;
    options.output = defaultOutput();
    app.add_option("-o,--output", options.output, "the file to write (default: recording-DATE-TIME.mcap)");
    app.add_option("--duration", options.duration, "stop after S seconds")->check(CLI::PositiveNumber);
    app.add_option("--count", options.count, "stop after N samples of all topics together");
    app.add_option("--all", options.prefix,
                   "record every topic under this endpoint and path prefix, at PREFIX/TOPIC");
    app.add_option("--compression", options.compression, "zstd (default), lz4 or none")
        ->check(CLI::IsMember({"zstd", "lz4", "none"}));
    app.add_option("--chunk-size", options.chunkSize, "bytes of records after which a chunk is written (default 1 MiB)")
        ->check(CLI::Range(std::size_t{1}, std::size_t{256} * 1024 * 1024));
    commandLine.addProperties(options.properties, "krin.runtime.maxMessageSize=1048576");
    commandLine.addCurveOptions(options.properties);
    commandLine.addPlugin(options.plugin);
    app.add_option("URI_TOPIC", positional, "pairs of a topic URI and its topic type");
    if (const auto exitCode = commandLine.parse(argc, argv)) {
        return exitCode;
    }
    if (options.compression == "none") {
        options.compression = "";
    }
    if (positional.size() % 2 != 0) {
        throw tools::UsageError("URI '" + positional.back() + "' has no TOPIC after it");
    }
    for (std::size_t i = 0; i < positional.size(); i += 2) {
        options.topics.push_back({positional[i], positional[i + 1]});
    }
    if (!options.prefix.empty()) {
        while (!options.prefix.empty() && options.prefix.back() == '/') {
            options.prefix.pop_back();
        }
        for (const auto& topic : lumotypes::host::topicNames()) {
            options.topics.push_back({options.prefix + "/" + topic, topic});
        }
    }
    if (options.topics.empty()) {
        throw tools::UsageError("nothing to record: give URI TOPIC pairs or --all");
    }
    return std::nullopt;
}

}  // namespace lumo::record
