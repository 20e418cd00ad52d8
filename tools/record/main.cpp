// krin-record: records live topics into an MCAP file, each sample with the
// header it came with, as the wire carried it.

#include <iostream>

#include "tools/common/ToolMain.h"
#include "tools/mcap/Writer.h"
#include "tools/record/Recorder.h"

int main(int argc, char** argv) {
    using namespace lumo;
    return tools::runTool("krin-record", [&](const std::atomic<bool>& interrupted) -> int {
        record::RecordOptions options;
        if (const auto exitCode = record::parseRecordOptions(argc, argv, options)) {
            return *exitCode;
        }
        try {
            return record::record(options, interrupted);
        } catch (const mcap::WriteError& error) {
            std::cerr << "krin-record: " << error.what() << "; the chunks written before stay readable" << std::endl;
            return tools::exitSetup;
        }
    });
}
