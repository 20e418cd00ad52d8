// krin-play: publishes the samples of an MCAP recording through the plug-in's
// publishers, with their recorded spacing, or describes the file.

#include <atomic>
#include <csignal>
#include <iostream>

#include "tools/common/CommandLine.h"
#include "tools/common/ToolLogging.h"
#include "tools/mcap/Reader.h"
#include "tools/play/Info.h"
#include "tools/play/Player.h"

namespace {

std::atomic<bool> interrupted{false};

void onSignal(int) { interrupted = true; }

}  // namespace

int main(int argc, char** argv) {
    using namespace lumo;
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    tools::configureToolLogging();
    try {
        play::PlayOptions options;
        if (!play::parsePlayOptions(argc, argv, options)) {
            return tools::exitOk;
        }
        if (options.info) {
            play::printInfo(options.file, options.recover, std::cout);
            return tools::exitOk;
        }
        return play::play(options, interrupted);
    } catch (const tools::UsageError& error) {
        std::cerr << "krin-play: " << error.what() << "\n(krin-play --help explains the arguments)" << std::endl;
        return tools::exitUsage;
    } catch (const mcap::FormatError& error) {
        std::cerr << "krin-play: " << error.what() << "; nothing was published" << std::endl;
        return tools::exitUsage;
    } catch (const std::exception& error) {
        std::cerr << "krin-play: " << error.what() << std::endl;
        return tools::exitSetup;
    }
}
