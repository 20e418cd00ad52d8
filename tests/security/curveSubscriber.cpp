// A subscribing host of the CURVE tests in a process of its own: a queued
// Dummy subscriber whose runtime holds the keys given. Answers on stdout:
//
//   "registered"  once its subscriber exists
//   "received"    at its first sample
//   "samples N"   for the command "report" on stdin: the samples so far
//
// Usage: curveSubscriber PLUGIN URI SERVER_PUBLIC_KEY PUBLIC_KEY SECRET_KEY.
// Ends on "quit" or at the end of stdin.

#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"
#include "lumotypes/Lumotypes.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"

namespace {

using Sample = lumotypes::Dummy;

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::cerr << "usage: curveSubscriber PLUGIN URI SERVER_PUBLIC_KEY PUBLIC_KEY SECRET_KEY\n";
        return 2;
    }
    const lumotypes::host::Plugin plugin(argv[1]);
    auto dabo = lumotypes::host::createRuntime({{"krin.runtime.curve.serverPublicKey", argv[3]},
                                                 {"krin.runtime.curve.publicKey", argv[4]},
                                                 {"krin.runtime.curve.secretKey", argv[5]}});
    std::unique_ptr<orlo::dabo::ps::Subscriber<Sample>> subscriber = plugin.subscriber<Sample>(argv[2], {}, dabo);
    std::cout << "registered" << std::endl;

    std::atomic<unsigned long> samples{0};
    std::atomic<bool> stopping{false};
    std::thread reader([&] {
        while (!stopping) {
            std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<Sample>>> events;
            subscriber->readDataEvents(orlo::dabo::ps::DataEventFilter<Sample>(), events, 100,
                                       std::chrono::milliseconds(100));
            if (!events.empty() && samples.fetch_add(events.size()) == 0) {
                std::cout << "received" << std::endl;
            }
        }
    });
    std::string line;
    while (std::getline(std::cin, line) && line != "quit") {
        if (line == "report") {
            std::cout << "samples " << samples.load() << std::endl;
        }
    }
    stopping = true;
    reader.join();
    subscriber->close();
    return 0;
}
