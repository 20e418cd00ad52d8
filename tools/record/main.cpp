// krin-record: records live topics into an MCAP file, each sample with the
// header it came with, as the wire carried it.

#include <atomic>
#include <csignal>
#include <iostream>

#include "tools/common/CommandLine.h"
#include "tools/common/ToolLogging.h"
#include "tools/mcap/Writer.h"
#include "tools/record/Recorder.h"

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
        record::RecordOptions options;
        if (!record::parseRecordOptions(argc, argv, options)) {
            return tools::exitOk;
        }
        return record::record(options, interrupted);
    } catch (const tools::UsageError& error) {
        std::cerr << "krin-record: " << error.what() << "\n(krin-record --help explains the arguments)" << std::endl;
        return tools::exitUsage;
    } catch (const mcap::WriteError& error) {
        std::cerr << "krin-record: " << error.what() << "; the chunks written before stay readable" << std::endl;
        return tools::exitSetup;
    } catch (const std::exception& error) {
        std::cerr << "krin-record: " << error.what() << std::endl;
        return tools::exitSetup;
    }
}
