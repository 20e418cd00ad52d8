// lumo-demo: loads the type-support plug-in as a host does and shows each
// topic going to bytes and back.

#include <cstring>
#include <iostream>
#include <string>

#include "tools/demo/RoundTrip.h"
#include "tools/loader/PluginLoader.h"

namespace {

void usage(std::ostream& out) {
    out << "Usage: lumo-demo [--plugin PATH] [--topic NAME] [--help]\n"
           "\n"
           "Loads the lumotypes plug-in, creates two entities of every topic through its\n"
           "exported data entity factories, fills the first, serialises it and parses the\n"
           "bytes into the second, and prints both.\n"
           "\n"
           "  --plugin PATH  the plug-in to load (default: "
        << lumo::tools::PluginLoader::defaultPath()
        << ")\n"
           "  --topic NAME   only this topic\n"
           "  --help         this text\n";
}

}  // namespace

int main(int argc, char* argv[]) {
    std::string pluginPath = lumo::tools::PluginLoader::defaultPath();
    std::string topic;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            usage(std::cout);
            return 0;
        }
        if ((argument == "--plugin" || argument == "--topic") && i + 1 < argc) {
            (argument == "--plugin" ? pluginPath : topic) = argv[++i];
            continue;
        }
        std::cerr << "lumo-demo: unexpected argument " << argument << "\n";
        usage(std::cerr);
        return 2;
    }
    try {
        lumo::tools::PluginLoader plugin(pluginPath);
        std::cout << "plug-in " << plugin.path() << "\n";
        const bool ok = topic.empty() ? lumo::demo::roundTripAll(plugin, std::cout)
                                      : lumo::demo::roundTrip(plugin, topic, std::cout);
        return ok ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << "lumo-demo: " << error.what() << "\n";
        return 1;
    }
}
