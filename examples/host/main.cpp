// A minimal host of the lumotypes plug-in: it loads the plug-in with dlopen,
// starts a Krin runtime, publishes one RefPos sample on loopback and receives
// it through a queued subscriber. Exits 0 if the sample came back unchanged.
//
// Usage: lumo-example-host [PLUGIN [PORT]]  (an empty PLUGIN: the installed one)
#include <dlfcn.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"
#include "lumotypes/Lumotypes.h"

namespace {

using orlo::dabo::krin::detail::KrinDabo;
using QoSList = std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>;

// The signatures of the plug-in's exported factories.
using PublisherFactory = orlo::dabo::ps::Publisher<lumotypes::RefPos>*(
    const std::string&, const QoSList&, const orlo::dabo::Dabo::Properties&, const std::shared_ptr<KrinDabo>&);
using SubscriberFactory = orlo::dabo::ps::Subscriber<lumotypes::RefPos>*(
    const std::string&, const QoSList&, const orlo::dabo::Dabo::Properties&, const std::shared_ptr<KrinDabo>&);

}  // namespace

int main(int argc, char** argv) {
    const std::string pluginPath = argc > 1 && argv[1][0] != '\0' ? argv[1] : LUMOTYPES_KRIN_PLUGIN;
    const std::string port = argc > 2 ? argv[2] : "27400";

    // The plug-in stays loaded for the life of the process: its schema is
    // registered with the message library as long as the process runs.
    void* plugin = dlopen(pluginPath.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (plugin == nullptr) {
        std::cerr << "cannot load " << pluginPath << ": " << dlerror() << "\n";
        return 2;
    }
    auto* makePublisher = reinterpret_cast<PublisherFactory*>(dlsym(plugin, "generated_krin_Publisher_lumotypes_RefPos"));
    auto* makeSubscriber =
        reinterpret_cast<SubscriberFactory*>(dlsym(plugin, "generated_krin_Subscriber_lumotypes_RefPos"));
    if (makePublisher == nullptr || makeSubscriber == nullptr) {
        std::cerr << "the plug-in does not export the RefPos factories\n";
        return 2;
    }

    try {
        auto runtime = KrinDabo::create({});
        const std::string uri = "krin.ps://127.0.0.1:" + port + "/example/RefPos";
        std::unique_ptr<orlo::dabo::ps::Publisher<lumotypes::RefPos>> publisher(makePublisher(uri, {}, {}, runtime));
        std::unique_ptr<orlo::dabo::ps::Subscriber<lumotypes::RefPos>> subscriber(
            makeSubscriber(uri, {}, {}, runtime));

        auto sample = publisher->createDataEntity();
        sample->setRefPosX(320);
        sample->setRefPosY(240);
        sample->setCentBoxWidth(16);
        sample->setCentBoxHeight(12);

        // A subscriber joins a moment after it is made: publish until the
        // sample comes back, waiting a little for it each time, for at most 20 s.
        const orlo::dabo::ps::DataEventFilter<lumotypes::RefPos> anything;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < deadline) {
            publisher->publish(*sample, std::chrono::milliseconds(1000));
            std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<lumotypes::RefPos>>> events;
            if (subscriber->readDataEvents(anything, events, 1, std::chrono::milliseconds(100)) == 1 &&
                events[0]->hasValidData()) {
                const auto& got = *events[0]->getData();
                std::cout << "received RefPos refPos=(" << got.getRefPosX() << "," << got.getRefPosY()
                          << ") box=" << got.getCentBoxWidth() << "x" << got.getCentBoxHeight() << "\n";
                const bool same = got.getRefPosX() == 320 && got.getRefPosY() == 240 &&
                                  got.getCentBoxWidth() == 16 && got.getCentBoxHeight() == 12;
                subscriber->close();
                publisher->close();
                return same ? 0 : 1;
            }
        }
        std::cerr << "no sample came back within 20 s\n";
        return 1;
    } catch (const std::exception& error) {
        std::cerr << "host failed: " << error.what() << "\n";
        return 3;
    }
}
