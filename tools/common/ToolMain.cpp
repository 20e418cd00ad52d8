#include "tools/common/ToolMain.h"

#include <csignal>

#include "tools/common/ToolLogging.h"

namespace lumo::tools {

namespace {

std::atomic<bool> interruptedBySignal{false};

void onSignal(int) { interruptedBySignal = true; }

}  // namespace

int runTool(const std::string& tool, const std::function<int(const std::atomic<bool>& interrupted)>& body) {
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    configureToolLogging();
    try {
        return body(interruptedBySignal);
    } catch (const UsageError& error) {
        std::cerr << tool << ": " << error.what() << "\n(" << tool << " --help explains the arguments)" << std::endl;
        return exitUsage;
    } catch (const std::exception& error) {
        std::cerr << tool << ": " << error.what() << std::endl;
        return exitSetup;
    }
}

}  // namespace lumo::tools
