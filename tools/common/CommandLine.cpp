#include "tools/common/CommandLine.h"

#include <iostream>

#include "lumotypes/host/Properties.h"
#include "tools/common/StopSignal.h"

namespace lumo::tools {

void checkProperties(const orlo::dabo::Dabo::Properties& properties, const std::string& tool) {
    for (const std::string& key : lumotypes::host::properties::checkProperties(properties)) {
        std::cerr << tool << ": property " << key << " is read by neither the runtime nor the plug-in" << std::endl;
    }
}

int exitCodeOf(const std::string& tool, const std::function<int()>& work) {
    try {
        return work();
    } catch (const UsageError& error) {
        std::cerr << tool << ": " << error.what() << "\n(" << tool << " --help explains the arguments)" << std::endl;
        return exitUsage;
    } catch (const std::exception& error) {
        std::cerr << tool << ": " << error.what() << std::endl;
        return exitSetup;
    }
}

int runTool(const std::string& tool, const std::function<int()>& work) {
    return exitCodeOf(tool, [&] { return runUntilStopped(tool, exitOk, work); });
}

}  // namespace lumo::tools
