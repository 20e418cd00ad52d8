#include "tools/common/ToolMain.h"

#include "tools/common/StopSignal.h"
#include "tools/common/ToolLogging.h"

namespace lumo::tools {

namespace {

std::atomic<bool> interruptedBySignal{false};

}  // namespace

int runTool(const std::string& tool, const std::function<int(const std::atomic<bool>& interrupted)>& body) {
    StopSignal::install().onStop([] { interruptedBySignal = true; });
    configureToolLogging();
    return exitCodeOf(tool, [&] { return body(interruptedBySignal); });
}

}  // namespace lumo::tools
