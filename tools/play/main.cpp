// krin-play: publishes the samples of an MCAP recording through the plug-in's
// publishers, with their recorded spacing, or describes the file.

#include <iostream>

#include "tools/common/ToolMain.h"
#include "tools/mcap/Reader.h"
#include "tools/play/Info.h"
#include "tools/play/Player.h"

int main(int argc, char** argv) {
    using namespace lumo;
    return tools::runTool("krin-play", [&](const std::atomic<bool>& interrupted) -> int {
        play::PlayOptions options;
        if (const auto exitCode = play::parsePlayOptions(argc, argv, options)) {
            return *exitCode;
        }
        try {
            if (options.info) {
                play::printInfo(options.file, options.recover, std::cout);
                return tools::exitOk;
            }
            return play::play(options, interrupted);
        } catch (const mcap::FormatError& error) {
            std::cerr << "krin-play: " << error.what() << "; nothing was published" << std::endl;
            return tools::exitUsage;
        }
    });
}
