#include "tools/perf/OneWayDriver.h"

#include <iostream>

#include "tools/common/FreePort.h"
#include "tools/perf/Runs.h"

namespace lumo::perf {

namespace {

PerfOptions onAFreePort(const PerfOptions& given) {
    PerfOptions options = given;
    options.portA = lumo::tools::freeLoopbackPort();
    return options;
}

}  // namespace

OneWayDriver::OneWayDriver(const PerfOptions& given, const std::string& self, const lumotypes::host::Plugin* plugin,
                           const std::string& topic, const std::string& role)
    : options(onAFreePort(given)),
      process(options, plugin),
      sender(makeSender(options, process.get(), options.portA, topic)),
      peer(startPeer(options, role, self, process.get())) {}

bool OneWayDriver::awaitSubscriber() {
    if (sender->awaitSubscribers(subscribersToAwait(options, 1, 0), std::chrono::seconds(30))) {
        return true;
    }
    std::cerr << "krin-perf: the subscriber never joined" << std::endl;
    return false;
}

}  // namespace lumo::perf
