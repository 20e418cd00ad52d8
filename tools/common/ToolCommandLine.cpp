#include "tools/common/ToolCommandLine.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Properties.h"
#include "tools/common/CommandLine.h"

namespace lumo::tools {

namespace {

struct CurveOption {
    const char* option;
    const char* valueName;
    const char* property;
    const char* meaning;
};

const CurveOption curveOptions[] = {
    {"--curve-server-secret", "KEY", "krin.runtime.curve.serverSecretKey",
     "publishing: the endpoints' secret key, so that only subscribers that know its public key get samples"},
    {"--curve-authorized", "KEYS", "krin.runtime.curve.authorizedKeys",
     "publishing: admit only subscribers with these public keys (separated by commas or white space)"},
    {"--curve-server-public", "KEY", "krin.runtime.curve.serverPublicKey",
     "subscribing: the public key of the publishers' endpoints"},
    {"--curve-public", "KEY", "krin.runtime.curve.publicKey",
     "subscribing: this subscriber's own public key (with --curve-secret); a fresh pair when left out"},
    {"--curve-secret", "KEY", "krin.runtime.curve.secretKey", "subscribing: this subscriber's own secret key"},
};

std::string number(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

}  // namespace

ToolCommandLine::ToolCommandLine(const std::string& toolName, const std::string& description)
    : tool(toolName), cli(description, toolName) {
    cli.set_version_flag("--version", toolName + " " + LUMO_VERSION + " (lumotypes-krin)",
                         "print the tool's name and version and exit");
    cli.set_help_flag("-h,--help", "print this text and exit");
    cli.get_formatter()->column_width(30);
    cli.option_defaults()->always_capture_default();
}

void ToolCommandLine::addUri(std::string& uri, const std::string& meaning) {
    cli.add_option("URI", uri, "krin.ps://HOST:PORT/PATH " + meaning)->required()->type_name("");
}

void ToolCommandLine::addTopic(std::string& topic) {
    std::string names;
    for (const auto& name : lumotypes::host::topicNames()) {
        names += " " + name;
    }
    cli.add_option("TOPIC", topic, "the topic type, one of:" + names)->required()->type_name("");
}

void ToolCommandLine::addProperties(orlo::dabo::Dabo::Properties& properties, const std::string& example) {
    cli.add_option_function<std::vector<std::string>>(
           "-p",
           [&properties](const std::vector<std::string>& texts) {
               for (const auto& text : texts) {
                   const auto equals = text.find('=');
                   properties[text.substr(0, equals)] = text.substr(equals + 1);
               }
           },
           "a property of the runtime or the plug-in, e.g. " + example)
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false)
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                const auto equals = text.find('=');
                if (equals == std::string::npos || equals == 0) {
                    return "property '" + text + "' is not of the form key=value";
                }
                return "";
            },
            ""));
}

void ToolCommandLine::addCurveOptions(orlo::dabo::Dabo::Properties& properties) {
    for (const CurveOption& curve : curveOptions) {
        const std::string property = curve.property;
        cli.add_option_function<std::string>(
               curve.option, [&properties, property](const std::string& value) { properties[property] = value; },
               curve.meaning)
            ->type_name(curve.valueName)
            ->group("CURVE security (keys as Z85 text, 40 characters; -p krin.runtime.curve.* sets the same; "
                    "a secret key on the command line is visible to other users of the machine)");
    }
}

void ToolCommandLine::addMetricsAddress(orlo::dabo::Dabo::Properties& properties) {
    cli.add_option_function<std::string>(
           "--metrics-address",
           [&properties](const std::string& value) {
               properties[lumotypes::host::properties::metricsAddress] = value;
           },
           "serve the runtime's counters for Prometheus at http://HOST:PORT/metrics (port 0: any free one); "
           "the same as -p krin.runtime.metricsAddress=HOST:PORT")
        ->type_name("HOST:PORT");
}

void ToolCommandLine::addPlugin(std::string& path) {
    path = lumotypes::host::Plugin::defaultPath();
    cli.add_option("--plugin", path, "the plug-in to load")->type_name("PATH");
}

std::optional<int> ToolCommandLine::parse(int argc, char** argv) {
    try {
        cli.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::cout << cli.help();
        return exitOk;
    } catch (const CLI::CallForVersion& version) {
        std::cout << version.what() << std::endl;
        return exitOk;
    } catch (const CLI::ParseError& refusal) {
        std::cerr << tool << ": " << refusal.what() << "\n(" << tool << " --help explains the arguments)"
                  << std::endl;
        return exitUsage;
    }
    return std::nullopt;
}

CLI::Validator numberIn(double min, double max, const std::string& what) {
    return CLI::Validator(
        [min, max, what](std::string& text) -> std::string {
            char* end = nullptr;
            errno = 0;
            const double value = std::strtod(text.c_str(), &end);
            if (text.empty() || *end != '\0' || errno != 0 || !std::isfinite(value)) {
                return "'" + text + "' is not a number (" + what + ")";
            }
            if (value < min || value > max) {
                return text + " is not in " + number(min) + " .. " + number(max) + " (" + what + ")";
            }
            return "";
        },
        "");
}

CLI::Validator wholeNumberIn(unsigned long long min, unsigned long long max, const std::string& what) {
    return CLI::Validator(
        [min, max, what](std::string& text) -> std::string {
            char* end = nullptr;
            errno = 0;
            const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
            if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || errno != 0 ||
                value < min || value > max) {
                return "'" + text + "' is not a whole number in " + std::to_string(min) + " .. " + std::to_string(max) + " (" + what + ")";
            }
            return "";
        },
        "");
}

std::string exitStatusText(const std::string& whatFails) {
    return "Exit status: 0 done, or stopped by SIGINT or SIGTERM; " + (whatFails.empty() ? "" : "1 " + whatFails + "; ") +
           "2 a bad argument, URI, host, topic, property or value, with a message naming it; "
           "3 the plug-in or the runtime could not be set up.";
}

}  // namespace lumo::tools
