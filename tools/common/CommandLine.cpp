#include "tools/common/CommandLine.h"

#include <iostream>

#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"
#include "tools/common/StopSignal.h"

namespace lumo::tools {

void checkProperties(const orlo::dabo::Dabo::Properties& properties, const std::string& tool) {
    orlo::dabo::util::getLongProperty(properties, "krin.runtime.highWaterMark", 0);
    orlo::dabo::util::getLongProperty(properties, "krin.ps.slowJoinerDelayMs", 0);
    orlo::dabo::krin::detail::getDaboBoolProperty(properties, "krin.ps.disableTypeHashCheck", false);
    for (const auto& entry : properties) {
        if (entry.first.rfind("krin.", 0) != 0) {
            std::cerr << tool << ": property " << entry.first << " is read by neither the runtime nor the plug-in"
                      << std::endl;
        }
    }
}

int runTool(const std::string& tool, const std::function<int()>& work) {
    try {
        return runUntilStopped(tool, exitOk, work);
    } catch (const UsageError& error) {
        std::cerr << tool << ": " << error.what() << "\n(" << tool << " --help explains the arguments)" << std::endl;
        return exitUsage;
    } catch (const std::exception& error) {
        std::cerr << tool << ": " << error.what() << std::endl;
        return exitSetup;
    }
}

}  // namespace lumo::tools
