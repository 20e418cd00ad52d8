// A subscribing process of the fault tests: a queued subscriber of the soak
// stream in a process of its own, so that a test can kill it mid-stream and
// start another. Answers on stdout:
//
//   "registered"          once its subscriber exists
//   "receiving ID"        at its first sample
//   "received N LOST LAST DISORDERED" for the command "report" on stdin, and
//                         for "await ID" once ID (or a later one) has arrived
//                         or a minute has passed
//
// Usage: soakSubscriber PLUGIN PORT. Ends on "quit" or at the end of stdin.

#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "SequenceReader.h"
#include "SoakTopic.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: soakSubscriber PLUGIN PORT\n";
        return 2;
    }
    const lumotypes::host::Plugin plugin(argv[1]);
    const std::string port = argv[2];
    auto dabo = lumotypes::host::createRuntime({});
    auto factory =
        plugin.factory<lumotypes::host::SubscriberFactory<lumo::soak::Sample>>(
            lumotypes::host::TopicTraits<lumo::soak::Sample>::subscriberFactory);
    std::unique_ptr<orlo::dabo::ps::Subscriber<lumo::soak::Sample>> subscriber(
        factory(lumo::soak::uriOf(port, lumo::soak::streamPath), {}, {}, dabo));
    std::cout << "registered" << std::endl;

    lumo::soak::SequenceReader reader(*subscriber);
    std::thread announce([&reader] {
        if (reader.awaitMoreThan(0, std::chrono::seconds(120))) {
            std::cout << "receiving " << reader.snapshot().first << std::endl;
        }
    });
    std::string line;
    while (std::getline(std::cin, line) && line != "quit") {
        if (line.rfind("await ", 0) == 0) {
            reader.awaitId(static_cast<std::uint32_t>(std::stoul(line.substr(6))), std::chrono::seconds(60));
        }
        if (line == "report" || line.rfind("await ", 0) == 0) {
            const lumo::soak::SequenceAccount account = reader.snapshot();
            std::cout << "received " << account.received << ' ' << account.lost << ' ' << account.last << ' '
                      << account.disordered << std::endl;
        }
    }
    reader.stop();
    announce.join();
    subscriber->close();
    return 0;
}
