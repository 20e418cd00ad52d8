#include "tools/play/PlayOptions.h"

#include <iostream>

#include "tools/common/CommandLine.h"
#include "tools/common/ToolCommandLine.h"
#include "lumotypes/host/Plugin.h"

namespace lumo::play {

namespace {

/// Without a -p of its own, a publisher waits this long after registering, so
/// that subscribers which are already trying to connect have joined before
/// the first sample leaves.
constexpr const char* defaultSlowJoinerDelayMs = "500";

}  // namespace

std::optional<int> parsePlayOptions(int argc, char** argv, PlayOptions& options) {
    tools::ToolCommandLine commandLine{"krin-play",
        "Forms: krin-play [OPTIONS] FILE.mcap URI\n"
        "       krin-play --info FILE.mcap\n\n"
        "Publishes the samples recorded in an MCAP file through the plug-in's\n"
        "publishers, in recorded order and with the recorded spacing (scaled by\n"
        "--speed). Each channel is published at URI followed by the channel's topic,\n"
        "e.g. krin.ps://*:7400 and /lumo/demo/LumoMode. Channels must hold protobuf\n"
        "messages of one of the plug-in's topics; the file is checked whole before\n"
        "anything is published."};
    CLI::App& app = commandLine.app();
    app.footer(
        "\nExit status: 0 when every sample is published, the --info is printed or\n"
        "when interrupted; 2 for a bad argument, or a truncated, corrupt or foreign\n"
        "file (the message names the file, the offset and the record); 3 if the\n"
        "plug-in or the runtime could not be set up.");
    std::vector<std::string> remaps;
    app.add_option("FILE", options.file, "the recording")->required();
    app.add_option("URI", options.uri, "krin.ps://HOST:PORT to publish at (HOST * binds all interfaces)");
    auto* speed = app.add_option("--speed", options.speed, "play X times as fast as recorded (default 1)")
                      ->check(CLI::PositiveNumber);
    app.add_flag("--as-fast-as-possible", options.asFastAsPossible, "publish without waiting between samples")
        ->excludes(speed);
    app.add_flag("--loop", options.loop, "start again at the end, until interrupted");
    app.add_option("--topic", options.topics, "play only this channel topic or topic type (repeatable)")
        ->allow_extra_args(false);
    app.add_option("--remap", remaps, "FROM=TO: publish channel topics beginning with FROM under TO")
        ->allow_extra_args(false);
    app.add_flag("--info", options.info, "print the file's topics, counts, time span and schemas; publish nothing");
    app.add_flag("--recover", options.recover,
                 "read the complete chunks of a recording that was not closed (killed recorder)");
    commandLine.addProperties(options.properties, "krin.ps.slowJoinerDelayMs=0");
    commandLine.addCurveOptions(options.properties);
    commandLine.addPlugin(options.plugin);
    if (const auto exitCode = commandLine.parse(argc, argv)) {
        return exitCode;
    }
    for (const auto& remap : remaps) {
        const auto equals = remap.find('=');
        if (equals == std::string::npos || equals == 0) {
            throw tools::UsageError("--remap takes FROM=TO, not '" + remap + "'");
        }
        options.remaps.emplace_back(remap.substr(0, equals), remap.substr(equals + 1));
    }
    options.properties.emplace("krin.ps.slowJoinerDelayMs", defaultSlowJoinerDelayMs);
    if (!options.info && options.uri.empty()) {
        throw tools::UsageError("no URI to publish at (or --info to only describe the file)");
    }
    return std::nullopt;
}

}  // namespace lumo::play
