// A subscriber in a process of its own, for the tests whose publisher lives
// in the test's process.
//
//   krin_test_subscriber URI TOPIC COUNT
//
// Registers one subscriber of TOPIC at URI through its own runtime, prints
// "READY" once it is registered, then one line per message received: its
// header, a space, and "intact" or "changed" as its payload matches what
// lumo::test::sampleFrames makes of that header. Prints "DONE" after COUNT
// messages and exits with 0; with 1 if they do not all come in time.

#include <iostream>
#include <memory>
#include <string>

#include "KrinTestSupport.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"

namespace {

using namespace orlo::dabo::krin::detail;

/// Whether `message` is what sampleFrames makes of its own header.
bool intact(const lumo::test::Message& message) {
    if (message.size() != 3) {
        return false;
    }
    const std::string& header = message[1];
    const auto hash = header.rfind('#');
    if (hash == std::string::npos) {
        return false;
    }
    const unsigned int sequence = static_cast<unsigned int>(std::stoul(header.substr(hash + 1)));
    return lumo::test::sampleFrames(message[0], header.substr(0, hash), sequence, message[2].size()) == message;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: krin_test_subscriber URI TOPIC COUNT" << std::endl;
        return 2;
    }
    const std::string uri = argv[1];
    const std::string topic = argv[2];
    const std::size_t count = std::stoul(argv[3]);

    auto dabo = KrinDabo::create({});
    auto subscriber = std::make_shared<lumo::test::RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = subscriber;
    dabo->registerSubscriber(uri, lumo::test::frameOf(topic),
                             handler);
    if (!subscriber->waitFor(REGISTERED)) {
        std::cerr << "krin_test_subscriber: not registered" << std::endl;
        return 1;
    }
    std::cout << "READY" << std::endl;
    const bool complete = subscriber->waitForMessages(count);
    for (const lumo::test::Message& message : subscriber->messages()) {
        std::cout << (message.size() > 1 ? message[1] : std::string("?")) << ' '
                  << (intact(message) ? "intact" : "changed") << '\n';
    }
    std::cout << "DONE" << std::endl;
    return complete ? 0 : 1;
}
