// The publishing host of the end-to-end test: a separate process that loads
// the plug-in, publishes the samples of E2eSamples.h on every topic once the
// test's subscribers have joined, reports "published" on stdout and keeps its
// publishers open until stdin says "quit" (or closes).
//
// Usage: e2ePublisher PLUGIN PORT SUBSCRIBERS_PER_TOPIC
#include <chrono>
#include <condition_variable>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "E2eSamples.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/qos/QoS.h"
#include "dabo/util/DaboUtil.h"

namespace {

using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboTesting;
using orlo::dabo::krin::detail::KrinDaboTestHooks;

/// Counts the subscriptions that the runtime's bound endpoint sees, per topic frame.
class Joins {
public:
    void record(bool subscribed, const std::string& filter) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            counts[filter] += subscribed ? 1 : -1;
        }
        changed.notify_all();
    }
    bool await(const std::vector<std::string>& frames, int wanted, std::chrono::seconds limit) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, limit, [&] {
            for (const auto& frame : frames) {
                if (counts[frame] < wanted) {
                    return false;
                }
            }
            return true;
        });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::string, int> counts;
};

std::string topicUri(const std::string& port, const std::string& topic) {
    return "krin.ps://127.0.0.1:" + port + "/e2e/" + topic;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: e2ePublisher PLUGIN PORT SUBSCRIBERS_PER_TOPIC\n";
        return 2;
    }
    const lumotypes::host::Plugin plugin(argv[1]);
    const std::string port = argv[2];
    const int subscribersPerTopic = std::stoi(argv[3]);

    auto joins = std::make_shared<Joins>();
    KrinDaboTestHooks hooks;
    hooks.subscriptionObserver = [joins](const std::string&, bool subscribed, const std::string& filter) {
        joins->record(subscribed, filter);
    };
    auto dabo = KrinDaboTesting::create({}, hooks);
    const auto makeCentError = lumo::e2e::centErrorMaker(plugin);

    std::vector<std::shared_ptr<void>> publishers;
    std::vector<std::function<void()>> publishAll;
    std::vector<std::string> frames;
#define LUMO_E2E_PUBLISHER(Name)                                                                                \
    {                                                                                                           \
        std::shared_ptr<orlo::dabo::ps::Publisher<lumotypes::Name>> publisher =                                \
            plugin.publisher<lumotypes::Name>(topicUri(port, #Name), {}, dabo);                                                      \
        publishers.push_back(publisher);                                                                        \
        frames.push_back(orlo::dabo::krin::detail::createFrame0(                                                \
            static_cast<std::uint32_t>(orlo::dabo::util::topicNameHash("/e2e/" #Name))));                       \
        publishAll.push_back([publisher, &makeCentError] {                                                      \
            for (int index = 0; index < lumo::e2e::samplesPerTopic; ++index) {                                  \
                auto sample = publisher->createDataEntity();                                                    \
                lumo::e2e::TopicSamples<lumotypes::Name>::fill(*sample, index, makeCentError);                  \
                publisher->publish(*sample, std::chrono::milliseconds(1000));                                   \
            }                                                                                                   \
        });                                                                                                     \
    }
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_E2E_PUBLISHER)
#undef LUMO_E2E_PUBLISHER

    if (!joins->await(frames, subscribersPerTopic, std::chrono::seconds(30))) {
        std::cerr << "the subscribers never joined\n";
        return 3;
    }
    for (const auto& publish : publishAll) {
        publish();
    }
    std::cout << "published" << std::endl;

    std::string line;
    while (std::getline(std::cin, line) && line != "quit") {
    }
    publishAll.clear();
    publishers.clear();
    return 0;
}
