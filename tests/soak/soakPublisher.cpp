// The publishing process of the soak and fault tests. Loads the plug-in,
// publishes HokuTopicIn samples numbered by sample_id and answers commands
// on stdin, one per line:
//
//   publish COUNT RATE   COUNT samples at RATE per second (0: at full speed);
//                        answers "published FIRST LAST FAILED"
//   start RATE           publishes until "stop" (answers "started");
//   stop                 answers "stopped LAST FAILED"
//   quit                 closes the publishers and ends
//
// Usage: soakPublisher PLUGIN PORT SUBSCRIBERS FIRST_ID [MRV_SUBSCRIBERS]
// It answers "joined" once SUBSCRIBERS subscriptions to the stream (and
// MRV_SUBSCRIBERS to the most-recent-value topic) have reached its endpoint. The ids go on from FIRST_ID, so that a restarted
// publisher continues where its predecessor stopped.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>

#include "SoakTopic.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"
#include "lumotypes/host/Plugin.h"

namespace {

using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboTesting;
using orlo::dabo::krin::detail::KrinDaboTestHooks;

/// Subscriptions seen at the endpoint, per topic frame.
class Joins {
public:
    void record(bool subscribed, const std::string& filter) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            counts[filter] += subscribed ? 1 : -1;
        }
        changed.notify_all();
    }
    bool await(const std::string& frame, int wanted) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(60), [&] { return counts[frame] >= wanted; });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::string, int> counts;
};

std::string frameOf(const char* path) {
    return orlo::dabo::krin::detail::createFrame0(static_cast<std::uint32_t>(orlo::dabo::util::topicNameHash(path)));
}

class Stream {
public:
    Stream(std::shared_ptr<orlo::dabo::ps::Publisher<lumo::soak::Sample>> stream,
           std::shared_ptr<orlo::dabo::ps::Publisher<lumo::soak::Sample>> mostRecent, std::uint32_t firstId)
        : stream(std::move(stream)), mostRecent(std::move(mostRecent)), nextId(firstId) {}

    /// Publishes `count` samples (0: until stopped) at `rate` per second.
    void publish(unsigned long count, double rate) {
        auto sample = stream->createDataEntity();
        const auto start = std::chrono::steady_clock::now();
        for (unsigned long n = 0; (count == 0 || n < count) && !stopping; ++n) {
            if (rate > 0) {
                // Paced in whole batches: the clock says how many should be out by now.
                const auto due = start + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                             std::chrono::duration<double>(static_cast<double>(n) / rate));
                std::this_thread::sleep_until(due);
            }
            const std::uint32_t id = nextId++;
            lumo::soak::fill(*sample, id, orlo::dabo::util::timestampToDouble(orlo::dabo::util::currentTimeMillis()));
            try {
                stream->publish(*sample, std::chrono::milliseconds(1000));
                if (id % lumo::soak::mrvEvery == 0) {
                    mostRecent->publish(*sample, std::chrono::milliseconds(1000));
                }
            } catch (const std::exception& e) {
                ++failed;
            }
        }
    }

    std::uint32_t next() const { return nextId; }
    unsigned long failures() const { return failed; }
    std::atomic<bool> stopping{false};

private:
    std::shared_ptr<orlo::dabo::ps::Publisher<lumo::soak::Sample>> stream;
    std::shared_ptr<orlo::dabo::ps::Publisher<lumo::soak::Sample>> mostRecent;
    std::atomic<std::uint32_t> nextId;
    std::atomic<unsigned long> failed{0};
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5 && argc != 6) {
        std::cerr << "usage: soakPublisher PLUGIN PORT SUBSCRIBERS FIRST_ID [MRV_SUBSCRIBERS]\n";
        return 2;
    }
    const lumotypes::host::Plugin plugin(argv[1]);
    const std::string port = argv[2];
    const int subscribers = std::stoi(argv[3]);
    const auto firstId = static_cast<std::uint32_t>(std::stoul(argv[4]));
    const int mrvSubscribers = argc == 6 ? std::stoi(argv[5]) : 0;

    auto joins = std::make_shared<Joins>();
    KrinDaboTestHooks hooks;
    hooks.subscriptionObserver = [joins](const std::string&, bool subscribed, const std::string& filter) {
        joins->record(subscribed, filter);
    };
    // Five seconds of a 20000-per-second stream fit into the endpoint's
    // queue, so that a busy machine's scheduling pauses do not drop samples.
    auto dabo = KrinDaboTesting::create({{"krin.runtime.highWaterMark", "100000"}}, hooks);
    auto factory = plugin.factory<lumotypes::host::PublisherFactory<lumo::soak::Sample>>(
            lumotypes::host::TopicTraits<lumo::soak::Sample>::publisherFactory);
    std::shared_ptr<orlo::dabo::ps::Publisher<lumo::soak::Sample>> stream(
        factory(lumo::soak::uriOf(port, lumo::soak::streamPath), {}, {}, dabo));
    std::shared_ptr<orlo::dabo::ps::Publisher<lumo::soak::Sample>> mostRecent(
        factory(lumo::soak::uriOf(port, lumo::soak::mrvPath), {}, {}, dabo));
    Stream publishing(stream, mostRecent, firstId);

    if (!joins->await(frameOf(lumo::soak::streamPath), subscribers) ||
        !joins->await(frameOf(lumo::soak::mrvPath), mrvSubscribers)) {
        std::cerr << "the subscribers never joined\n";
        return 3;
    }
    std::cout << "joined" << std::endl;

    std::thread background;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        if (command == "publish") {
            unsigned long count = 0;
            double rate = 0;
            words >> count >> rate;
            const std::uint32_t first = publishing.next();
            publishing.publish(count, rate);
            std::cout << "published " << first << ' ' << publishing.next() - 1 << ' ' << publishing.failures()
                      << std::endl;
        } else if (command == "start") {
            double rate = 0;
            words >> rate;
            publishing.stopping = false;
            background = std::thread([&publishing, rate] { publishing.publish(0, rate); });
            std::cout << "started" << std::endl;
        } else if (command == "stop") {
            publishing.stopping = true;
            if (background.joinable()) {
                background.join();
            }
            std::cout << "stopped " << publishing.next() - 1 << ' ' << publishing.failures() << std::endl;
        } else if (command == "quit") {
            break;
        }
    }
    publishing.stopping = true;
    if (background.joinable()) {
        background.join();
    }
    stream->close();
    mostRecent->close();
    return 0;
}
