// The far side of the two-process transport tests: publishes through its own
// runtime.
//
//   krin_test_peer COUNT SUBSCRIPTIONS ENDPOINT|TOPIC...
//
// Registers one dealer per ENDPOINT|TOPIC, prints "READY" once all are
// registered, waits until the bound endpoints have seen SUBSCRIPTIONS
// subscriptions in all, sends COUNT samples per dealer (round robin, header
// "pub<index>#<sequence>"), prints "SENT", and exits with 0 when its standard
// input closes. Any failure ends it with a non-zero status and a line on
// standard error.

#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "KrinTestSupport.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"

namespace {

using namespace orlo::dabo::krin::detail;

struct Publisher {
    std::string endpoint;
    std::string topicFrame;
    std::unique_ptr<zmq::socket_t> dealer;
    std::shared_ptr<lumo::test::RecordingHandler> handler;
};

int fail(const std::string& why) {
    std::cerr << "krin_test_peer: " << why << std::endl;
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        return fail("usage: krin_test_peer COUNT SUBSCRIPTIONS ENDPOINT|TOPIC...");
    }
    const unsigned int count = static_cast<unsigned int>(std::stoul(argv[1]));
    const std::size_t awaited = std::stoul(argv[2]);

    std::mutex mutex;
    std::condition_variable joined;
    std::size_t subscriptions = 0;
    KrinDaboTestHooks hooks;
    hooks.subscriptionObserver = [&](const std::string&, bool subscribed, const std::string&) {
        if (subscribed) {
            std::lock_guard<std::mutex> lock(mutex);
            ++subscriptions;
        }
        joined.notify_all();
    };
    auto dabo = KrinDaboTesting::create({}, hooks);

    std::vector<Publisher> publishers;
    for (int i = 3; i < argc; ++i) {
        const std::string endpointAndTopic(argv[i]);
        const auto bar = endpointAndTopic.find('|');
        if (bar == std::string::npos) {
            return fail("bad publisher " + endpointAndTopic);
        }
        Publisher publisher;
        publisher.endpoint = endpointAndTopic.substr(0, bar);
        const std::string topic = endpointAndTopic.substr(bar + 1);
        publisher.topicFrame = lumo::test::frameOf(topic);
        publisher.dealer = dabo->createDealer();
        publisher.handler = std::make_shared<lumo::test::RecordingHandler>();
        std::weak_ptr<EventsHandler> handler = publisher.handler;
        dabo->registerPublisher(publisher.endpoint, getSocketIdentity(*publisher.dealer), handler, {});
        publishers.push_back(std::move(publisher));
    }
    for (auto& publisher : publishers) {
        if (!publisher.handler->waitFor(REGISTERED)) {
            return fail("no REGISTERED for " + publisher.endpoint);
        }
    }
    std::cout << "READY" << std::endl;

    {
        std::unique_lock<std::mutex> lock(mutex);
        if (!joined.wait_for(lock, lumo::test::patience, [&] { return subscriptions >= awaited; })) {
            return fail("subscribers did not join");
        }
    }
    for (unsigned int sequence = 0; sequence < count; ++sequence) {
        for (std::size_t p = 0; p < publishers.size(); ++p) {
            lumo::test::sendMessage(*publishers[p].dealer,
                                    lumo::test::sampleFrames(publishers[p].topicFrame, "pub" + std::to_string(p), sequence));
        }
    }
    std::cout << "SENT" << std::endl;

    // Stay up until the test has what it expects: closing now would drop
    // frames still on their way.
    std::string line;
    while (std::getline(std::cin, line)) {
    }
    for (auto& publisher : publishers) {
        publisher.dealer.reset();
    }
    return EXIT_SUCCESS;
}
