// A minimal host of the lumotypes plug-in: it loads the plug-in through the
// host component, starts a Krin runtime, publishes one RefPos sample on
// loopback and receives it through a queued subscriber. Exits 0 if the sample
// came back unchanged.
//
// Usage: lumo-example-host [PLUGIN [PORT]]  (an empty PLUGIN: the installed one)
#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "dabo/ps/DataEventFilter.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"

int main(int argc, char** argv) {
    const std::string pluginPath = argc > 1 && argv[1][0] != '\0' ? argv[1] : lumotypes::host::Plugin::defaultPath();
    const std::string port = argc > 2 ? argv[2] : "27400";

    // Loads the plug-in and finds all its factories at once; it stays loaded
    // for the life of the process.
    std::unique_ptr<lumotypes::host::Plugin> plugin;
    try {
        plugin = std::make_unique<lumotypes::host::Plugin>(pluginPath);
    } catch (const lumotypes::host::PluginLoadError& error) {
        std::cerr << error.what() << "\n";
        return 2;
    }

    try {
        auto runtime = lumotypes::host::createRuntime({});
        const std::string uri = "krin.ps://127.0.0.1:" + port + "/example/RefPos";
        auto publisher = plugin->publisher<lumotypes::RefPos>(uri, {}, runtime);
        auto subscriber = plugin->subscriber<lumotypes::RefPos>(uri, {}, runtime);

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
