// A C++ host for the Python tests and the benchmark, over the host component:
//
//   lumo-python-peer echo IN_URI OUT_URI TOPIC
//       takes every sample of TOPIC on IN_URI, copies it field by field through
//       the topic class's accessors into a new entity and publishes that on
//       OUT_URI; until its standard input closes.
//   lumo-python-peer stream URI COUNT RATE
//       publishes FieldStablizationTopicIn probes (sample_id 4294967295) until a
//       line arrives on its standard input, then COUNT samples with sample_id
//       0..COUNT-1 at RATE per second (0: as fast as it can).
//   lumo-python-peer loop URI COUNT
//       publishes COUNT FieldStablizationTopicIn samples and reads each back
//       in this process; prints the microseconds per sample.
//
// Arguments KEY=VALUE whose key starts with "krin." are runtime properties.
// Prints "ready" once its publishers and subscribers exist. Exit codes: 0 ok,
// 1 failed run, 2 bad argument, 3 set-up failure.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "dabo/ps/DataEventFilter.h"
#include "lumotypes/Fields.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"

namespace {

using lumotypes::host::Plugin;
using lumotypes::host::Runtime;
using Clock = std::chrono::steady_clock;
constexpr std::uint32_t probeId = 4294967295u;

template <typename T>
std::unique_ptr<T> copyThroughAccessors(const Plugin& plugin, const T& source) {
    auto copy = plugin.createDataEntity<T>();
    lumotypes::Fields<T>::forEach(
        [&](const char*, auto getter, auto setter) { ((*copy).*setter)((source.*getter)()); });
    return copy;
}

template <typename T>
int echo(const Plugin& plugin, const Runtime& runtime, const std::string& in, const std::string& out) {
    auto subscriber = plugin.subscriber<T>(in, {}, runtime);
    auto publisher = plugin.publisher<T>(out, {}, runtime);
    std::atomic<bool> done(false);
    std::thread watcher([&] {
        std::string line;
        while (std::getline(std::cin, line)) {
        }
        done = true;
    });
    std::cout << "ready" << std::endl;
    const orlo::dabo::ps::DataEventFilter<T> anything;
    while (!done) {
        std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<T>>> events;
        subscriber->readDataEvents(anything, events, 1, std::chrono::milliseconds(50));
        for (const auto& event : events) {
            if (event->hasValidData()) {
                publisher->publish(*copyThroughAccessors(plugin, *event->getData()), std::chrono::seconds(1));
            }
        }
    }
    watcher.join();
    return 0;
}

// Every field is required on the wire: a new entity has each set to its default.
template <typename T>
std::unique_ptr<T> completeEntity(const Plugin& plugin) {
    auto entity = plugin.createDataEntity<T>();
    lumotypes::Fields<T>::forEach([&](const char*, auto getter, auto setter) { ((*entity).*setter)(((*entity).*getter)()); });
    return entity;
}

std::unique_ptr<lumotypes::FieldStablizationTopicIn> streamSample(const Plugin& plugin, std::uint32_t id) {
    auto sample = completeEntity<lumotypes::FieldStablizationTopicIn>(plugin);
    const float values[4] = {0.5f * static_cast<float>(id % 1000), 1.0f, 2.0f, 3.0f};
    const orlo::dabo::shared_vector<const float> errors(values, 4);
    sample->setSample_id(id);
    sample->setTimestamp_utc(1.0e-3 * id);
    sample->setQuality(true);
    sample->setGp1_cent_err(errors);
    sample->setGp2_cent_err(errors);
    sample->setGp3_cent_err(errors);
    sample->setPds_cent_err(errors);
    return sample;
}

int stream(const Plugin& plugin, const Runtime& runtime, const std::string& uri, long count, double rate) {
    auto publisher = plugin.publisher<lumotypes::FieldStablizationTopicIn>(uri, {}, runtime);
    std::atomic<bool> go(false);
    std::thread watcher([&] {
        std::string line;
        std::getline(std::cin, line);
        go = true;
    });
    std::cout << "ready" << std::endl;
    const auto probe = streamSample(plugin, probeId);
    while (!go) {
        publisher->publish(*probe, std::chrono::seconds(1));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    watcher.join();
    const auto start = Clock::now();
    for (long i = 0; i < count; ++i) {
        if (rate > 0) {
            std::this_thread::sleep_until(start + std::chrono::nanoseconds(static_cast<long long>(i * 1e9 / rate)));
        }
        publisher->publish(*streamSample(plugin, static_cast<std::uint32_t>(i)), std::chrono::seconds(1));
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::cout << "sent " << count << " in " << seconds << " s" << std::endl;
    return 0;
}

int loop(const Plugin& plugin, const Runtime& runtime, const std::string& uri, long count) {
    using Topic = lumotypes::FieldStablizationTopicIn;
    auto subscriber = plugin.subscriber<Topic>(uri, {}, runtime);
    auto publisher = plugin.publisher<Topic>(uri, {}, runtime);
    std::cout << "ready" << std::endl;
    const orlo::dabo::ps::DataEventFilter<Topic> anything;
    std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<Topic>>> events;
    // Until the subscriber has joined, samples may be lost.
    const auto probe = streamSample(plugin, probeId);
    while (events.empty()) {
        publisher->publish(*probe, std::chrono::seconds(1));
        subscriber->readDataEvents(anything, events, 1, std::chrono::milliseconds(50));
    }
    subscriber->readDataEvents(anything, events, 0, std::chrono::milliseconds(200));
    long received = 0;
    const auto start = Clock::now();
    for (long i = 0; i < count; ++i) {
        publisher->publish(*streamSample(plugin, static_cast<std::uint32_t>(i)), std::chrono::seconds(1));
        events.clear();
        subscriber->readDataEvents(anything, events, 1, std::chrono::seconds(1));
        received += static_cast<long>(events.size());
        if (!events.empty()) {
            // Read what a consumer reads: the id and one array.
            const auto& got = *events.front()->getData();
            if (got.getSample_id() != static_cast<std::uint32_t>(i) || got.getGp1_cent_err().size() != 4) {
                std::cerr << "loop: sample " << i << " came back wrong\n";
                return 1;
            }
        }
    }
    const double micros = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
    std::cout << "loop " << count << " samples, " << received << " received, " << micros / count
              << " us per sample" << std::endl;
    return received == count ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    // Arguments of the form KEY=VALUE are properties of the runtime.
    std::vector<std::string> args;
    orlo::dabo::Dabo::Properties properties;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const auto equals = arg.find('=');
        if (equals != std::string::npos && arg.rfind("krin.", 0) == 0) {
            properties[arg.substr(0, equals)] = arg.substr(equals + 1);
        } else {
            args.push_back(arg);
        }
    }
    if (args.empty() || (args[0] == "echo" && args.size() != 4) || (args[0] == "stream" && args.size() != 4) ||
        (args[0] == "loop" && args.size() != 3) || (args[0] != "echo" && args[0] != "stream" && args[0] != "loop")) {
        std::cerr << "usage: lumo-python-peer echo IN_URI OUT_URI TOPIC | stream URI COUNT RATE | loop URI COUNT\n";
        return 2;
    }
    try {
        const Plugin plugin;
        const Runtime runtime = lumotypes::host::createRuntime(properties);
        if (args[0] == "stream") {
            return stream(plugin, runtime, args[1], std::stol(args[2]), std::stod(args[3]));
        }
        if (args[0] == "loop") {
            return loop(plugin, runtime, args[1], std::stol(args[2]));
        }
        int status = 2;
        const bool known = lumotypes::host::withTopic(args[3], [&](auto tag) {
            status = echo<typename decltype(tag)::type>(plugin, runtime, args[1], args[2]);
        });
        if (!known) {
            std::cerr << "lumo-python-peer: no topic named " << args[3] << "\n";
        }
        return status;
    } catch (const std::exception& error) {
        std::cerr << "lumo-python-peer: " << error.what() << "\n";
        return 3;
    }
}
