#include "tools/demo/DemoOptions.h"

#include "tools/common/CommandLine.h"
#include "tools/common/CurveKeyPair.h"

namespace lumo::demo {

using namespace lumo::tools;

namespace {

/// The runtime's CURVE properties for a run with --curve. The demo's single
/// runtime both publishes and subscribes, so it holds both sides' keys, and
/// lists the subscribers' public key as the only one its endpoints admit.
void switchCurveOn(orlo::dabo::Dabo::Properties& properties) {
    for (const auto& property : properties) {
        if (property.first.rfind("krin.runtime.curve.", 0) == 0) {
            throw UsageError("option --curve makes its own keys; leave out -p " + property.first);
        }
    }
    const CurveKeyPair server = newCurveKeyPair();
    const CurveKeyPair client = newCurveKeyPair();
    properties["krin.runtime.curve.serverSecretKey"] = server.secretKey;
    properties["krin.runtime.curve.serverPublicKey"] = server.publicKey;
    properties["krin.runtime.curve.publicKey"] = client.publicKey;
    properties["krin.runtime.curve.secretKey"] = client.secretKey;
    properties["krin.runtime.curve.authorizedKeys"] = client.publicKey;
    // The loop's own subscribers would otherwise take the in-process path,
    // where nothing is authenticated because nothing leaves the process: a
    // run that is to show CURVE at work sends them over TCP, unless told not to.
    properties.emplace("krin.runtime.inProcess", "false");
}

}  // namespace

void defineDemoOptions(lumo::tools::ToolCommandLine& line, DemoOptions& options) {
    auto& app = line.app();
    app.description(
        "Runs a telescope's field stabilisation loop over the lumotypes plug-in, loaded at run time as a host "
        "loads it, with an embedded Krin runtime on 127.0.0.1:\n"
        "  sensor      publishes FieldStablizationTopicIn at --rate (guide-probe centroid and position errors,\n"
        "              tip-tilt, advancing sample_id and timestamp)\n"
        "  controller  woken by a notifier of its queued subscriber, reads each sample, computes a tip-tilt\n"
        "              command and publishes FieldStablizationTopicOut\n"
        "  monitor     receives the commands through a listener and measures the loop\n"
        "  supervisor  changes LumoMode and RefPos now and then and watches them through most-recent-value\n"
        "              subscribers\n"
        "  and one verified round trip of each of the other seven topics.\n"
        "Every sample received is compared field by field with the one sent. At the end a table gives per topic: "
        "sent, received, verified, and for the loop the latency from the sensor's timestamp_utc (returned in "
        "timestamp_in_utc) to the arrival of the controller's command: median, 99th percentile and maximum.");
    app.add_option("--duration", options.duration, "how long the loop runs")
        ->type_name("SEC")
        ->check(numberIn(0.001, 1e6, "seconds"));
    app.add_option("--rate", options.sensorRate, "the sensor's rate")
        ->type_name("HZ")
        ->check(numberIn(0.001, 1e5, "samples per second"));
    app.add_option("--port", options.port, "the loopback port of the runtime; 0: a free one")
        ->type_name("PORT")
        ->check(wholeNumberIn(0, 65535, "a TCP port"));
    line.addProperties(options.properties, "krin.runtime.highWaterMark=5000");
    line.addMetricsAddress(options.properties);
    app.add_option("--log-config", options.logConfig,
                   "a log4cplus configuration (default: lumo-demo.log4cplus.properties beside the program, or "
                   "installed under share/lumotypes-krin)")
        ->type_name("FILE");
    line.addPlugin(options.plugin);
    app.add_flag("--curve", options.curve,
                 "run authenticated and encrypted (CURVE): a server key pair and a subscriber key pair are made "
                 "for the run, the endpoints admit only that subscriber key, and the loop's own subscribers use "
                 "TCP rather than the in-process path, so that every sample passes the handshake's keys");
    app.add_flag("--scope", options.scope,
                 "start krin-scope on the demo's topics and print the address of its page; it serves the page "
                 "until Ctrl-C");
    app.add_flag("-q,--quiet", options.quiet, "no progress lines, only the table");
    app.footer(exitStatusText("a sample was lost or differed") +
               " SIGINT or SIGTERM end the loop at once, without the table.");
}

void completeDemoOptions(DemoOptions& options) {
    if (options.curve) {
        switchCurveOn(options.properties);
    }
}

}  // namespace lumo::demo
