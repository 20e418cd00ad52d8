#include "tools/demo/DemoOptions.h"

#include "tools/common/CommandLine.h"
#include "tools/common/CurveOptions.h"
#include "lumotypes/host/Plugin.h"

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
}

}  // namespace

DemoOptions parseDemoOptions(int argc, char** argv) {
    DemoOptions options;
    options.plugin = lumotypes::host::Plugin::defaultPath();
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            options.help = true;
        } else if (argument == "--duration") {
            options.duration = positiveNumber(optionValue(argc, argv, i, argument), argument);
        } else if (argument == "--rate") {
            options.sensorRate = positiveNumber(optionValue(argc, argv, i, argument), argument);
        } else if (argument == "--port") {
            const unsigned long port = wholeNumber(optionValue(argc, argv, i, argument), argument);
            if (port < 1 || port > 65535) {
                throw UsageError("option --port needs a port from 1 to 65535");
            }
            options.port = static_cast<int>(port);
        } else if (argument == "--plugin") {
            options.plugin = optionValue(argc, argv, i, argument);
        } else if (argument == "--log-config") {
            options.logConfig = optionValue(argc, argv, i, argument);
        } else if (argument == "-p") {
            addProperty(options.properties, optionValue(argc, argv, i, argument));
        } else if (argument == "--quiet" || argument == "-q") {
            options.quiet = true;
        } else if (argument == "--curve") {
            options.curve = true;
        } else if (argument == "--scope") {
            options.scope = true;
        } else {
            throw UsageError("unexpected argument " + argument);
        }
    }
    if (options.curve && !options.help) {
        switchCurveOn(options.properties);
    }
    return options;
}

void printDemoUsage(std::ostream& out) {
    out << "Usage: lumo-demo [OPTIONS]\n"
           "\n"
           "Runs a telescope's field stabilisation loop over the lumotypes plug-in, loaded\n"
           "at run time as a host loads it, with an embedded Krin runtime on 127.0.0.1:\n"
           "\n"
           "  sensor      publishes FieldStablizationTopicIn at --rate (guide-probe centroid\n"
           "              and position errors, tip-tilt, advancing sample_id and timestamp)\n"
           "  controller  woken by a notifier of its queued subscriber, reads each sample,\n"
           "              computes a tip-tilt command and publishes FieldStablizationTopicOut\n"
           "  monitor     receives the commands through a listener and measures the loop\n"
           "  supervisor  changes LumoMode and RefPos now and then and watches them through\n"
           "              most-recent-value subscribers\n"
           "  and one verified round trip of each of the other seven topics.\n"
           "\n"
           "Every sample received is compared field by field with the one sent. At the end\n"
           "a table gives per topic: sent, received, verified, and for the loop the latency\n"
           "from the sensor's timestamp_utc (returned in timestamp_in_utc) to the arrival\n"
           "of the controller's command: median, 99th percentile and maximum.\n"
           "\n"
           "Options:\n"
           "  --duration SEC     how long the loop runs (default 3)\n"
           "  --rate HZ          the sensor's rate (default 1000)\n"
           "  --port PORT        the loopback port of the runtime (default: a free one)\n"
           "  -p KEY=VALUE       a property for the runtime and the plug-in, e.g.\n"
           "                     -p krin.runtime.highWaterMark=5000\n"
           "  --log-config FILE  a log4cplus configuration (default: lumo-demo.log4cplus.properties\n"
           "                     beside the program, or installed under share/lumotypes-krin)\n"
           "  --plugin PATH      the plug-in to load (default: "
        << lumotypes::host::Plugin::defaultPath()
        << ")\n"
           "  --curve            run authenticated and encrypted (CURVE): a server key pair\n"
           "                     and a subscriber key pair are made for the run, and the\n"
           "                     endpoints admit only that subscriber key\n"
           "  --scope            start krin-scope on the demo's topics and print the address\n"
           "                     of its page; it serves the page until Ctrl-C\n"
           "  --quiet            no progress lines, only the table\n"
           "  --help             this text\n"
           "\n"
           "Exit status: 0 if every sample sent was received and equal; 1 if any was lost\n"
           "or differed; 2 for a bad argument; 3 if the plug-in or the runtime could not\n"
           "be set up.\n";
}

}  // namespace lumo::demo
