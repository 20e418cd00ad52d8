#include "tools/play/Player.h"

#include <chrono>
#include <iostream>
#include <map>
#include <thread>

#include "dabo/DaboException.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"
#include "tools/common/CommandLine.h"
#include "tools/common/TopicUri.h"
#include "tools/play/Recording.h"
#include "tools/play/TopicPublisher.h"

namespace lumo::play {

namespace {

using Clock = std::chrono::steady_clock;

std::string remapped(const std::string& path, const PlayOptions& options) {
    for (const auto& [from, to] : options.remaps) {
        if (path.compare(0, from.size(), from) == 0) {
            return to + path.substr(from.size());
        }
    }
    return path;
}

std::string uriOf(const PlayedChannel& channel, const PlayOptions& options) {
    std::string base = options.uri;
    while (!base.empty() && base.back() == '/') {
        base.pop_back();
    }
    std::string path = remapped(channel.path, options);
    if (path.empty() || path.front() != '/') {
        path.insert(path.begin(), '/');
    }
    try {
        return tools::topicUri(base + path, channel.topic, true);
    } catch (const orlo::dabo::DaboException& refusal) {
        throw tools::UsageError(refusal.what());
    }
}

/// Waits until `due`, in short steps so that an interruption is seen soon.
void waitUntil(Clock::time_point due, const std::atomic<bool>& interrupted) {
    while (!interrupted && Clock::now() < due) {
        std::this_thread::sleep_until(std::min(due, Clock::now() + std::chrono::milliseconds(100)));
    }
}

}  // namespace

int play(const PlayOptions& options, const std::atomic<bool>& interrupted) {
    try {
        tools::checkProperties(options.properties, "krin-play");
    } catch (const orlo::dabo::DaboException& refusal) {
        throw tools::UsageError(refusal.what());
    }
    const lumotypes::host::Plugin plugin(options.plugin);
    Recording recording(options, plugin.schema());
    std::map<std::uint16_t, std::string> uris;
    for (const auto& [id, channel] : recording.channels()) {
        uris[id] = uriOf(channel, options);
    }

    lumotypes::host::Runtime runtime;
    try {
        runtime = lumotypes::host::createRuntime(options.properties);
    } catch (const orlo::dabo::DaboException& refusal) {
        throw tools::UsageError(refusal.what());
    }
    std::map<std::uint16_t, std::unique_ptr<TopicPublisher>> publishers;
    for (const auto& [id, channel] : recording.channels()) {
        publishers[id] = makeTopicPublisher(plugin, channel.topic, uris[id], options.properties, runtime);
        std::cerr << "krin-play: " << channel.path << " (" << channel.messages << " " << channel.topic
                  << ") at " << uris[id] << std::endl;
    }

    unsigned long published = 0;
    do {
        bool first = true;
        std::uint64_t firstLogTime = 0;
        Clock::time_point start;
        recording.forEachMessage([&](const mcap::Message& message, const PlayedChannel& channel) {
            if (first) {
                first = false;
                firstLogTime = message.logTime;
                start = Clock::now();
            }
            if (!options.asFastAsPossible && message.logTime > firstLogTime) {
                const double offset = static_cast<double>(message.logTime - firstLogTime) / 1e9 / options.speed;
                waitUntil(start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(offset)),
                          interrupted);
            }
            if (interrupted) {
                return false;
            }
            if (!publishers.at(channel.id)->publish(message.data)) {
                throw std::runtime_error("the plug-in's " + channel.topic + " refused the bytes of sample " +
                                         std::to_string(message.sequence) + " on " + channel.path);
            }
            ++published;
            return true;
        });
    } while (options.loop && !interrupted);

    // The runtime's thread moves the frames on; give it a moment before the
    // runtime closes its sockets, which drops what they still hold.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    for (auto& [id, publisher] : publishers) {
        publisher->close();
    }
    std::cerr << "krin-play: published " << published << " sample" << (published == 1 ? "" : "s") << " of "
              << publishers.size() << " channel" << (publishers.size() == 1 ? "" : "s") << std::endl;
    return tools::exitOk;
}

}  // namespace lumo::play
