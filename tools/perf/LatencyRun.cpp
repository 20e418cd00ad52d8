// Latency: a pinging process and a pong process that sends each sample back
// (or with --in-process, the pong on threads of the pinging process).
// A round trip is timed from the ping's publish to the moment the answer is
// handed to the reading code; half of it is reported.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <thread>
#include <vector>

#include "tools/common/FreePort.h"
#include "tools/perf/Latencies.h"
#include "tools/perf/Lines.h"
#include "tools/perf/PeerProcess.h"
#include "tools/perf/Result.h"
#include "tools/perf/Runs.h"
#include "tools/perf/Transport.h"

namespace lumo::perf {

namespace {

using Clock = std::chrono::steady_clock;
const char* const pingTopic = "/perf/ping";
const char* const pongTopic = "/perf/pong";
constexpr long warmupRoundTrips = 200;

/// The answer the pinging thread waits for.
class Mailbox {
public:
    void deliver(std::uint32_t id) {
        const Clock::time_point now = Clock::now();
        {
            std::lock_guard<std::mutex> lock(mutex);
            lastId = id;
            arrivedAt = now;
        }
        changed.notify_one();
    }
    /// The arrival time of answer `id`, or nothing within `limit`.
    bool await(std::uint32_t id, std::chrono::milliseconds limit, Clock::time_point& at) {
        std::unique_lock<std::mutex> lock(mutex);
        if (!changed.wait_for(lock, limit, [&] { return lastId == id; })) {
            return false;
        }
        at = arrivedAt;
        return true;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::uint32_t lastId = UINT32_MAX;
    Clock::time_point arrivedAt;
};

}  // namespace

int runPing(const PerfOptions& given, const std::string& self, const lumotypes::host::Plugin* plugin) {
    PerfOptions options = given;
    options.portA = lumo::tools::freeLoopbackPort();
    options.portB = lumo::tools::freeLoopbackPort();
    const ProcessEndpoints process(options, plugin);
    const Endpoints& endpoints = process.get();
    Mailbox mailbox;
    auto sender = makeSender(options, endpoints, options.portA, pingTopic);
    auto receiver = makeReceiver(options, endpoints, options.portB, pongTopic,
                                 [&mailbox](const Stamp& stamp) { mailbox.deliver(stamp.id); });
    const auto pong = startPeer(options, "pong", self, endpoints);
    if (!sender->awaitSubscribers(subscribersToAwait(options, 1, 1), std::chrono::seconds(30)) ||
        pong->readLine(std::chrono::seconds(30)) != "ready") {
        std::cerr << "krin-perf: the pong process never joined" << std::endl;
        return 3;
    }

    std::vector<double> halves;
    halves.reserve(static_cast<std::size_t>(options.roundTrips));
    long timedOut = 0;
    Stopper stopper;
    std::thread pinger([&] {
        for (long n = 0; n < warmupRoundTrips + options.roundTrips; ++n) {
            const auto id = static_cast<std::uint32_t>(n);
            const Clock::time_point sent = Clock::now();
            sender->send({id, 0});
            Clock::time_point answered;
            if (!mailbox.await(id, std::chrono::seconds(1), answered)) {
                ++timedOut;
                continue;
            }
            if (n >= warmupRoundTrips) {
                halves.push_back(std::chrono::duration<double, std::micro>(answered - sent).count() / 2.0);
            }
        }
        stopper.stop();
    });
    receiver->run(stopper, [] {});
    pinger.join();
    // Each subscriber closes before the publisher it is connected to, so that
    // neither side sees its publisher go away while it still listens.
    receiver.reset();
    pong->writeLine("quit");
    pong->finish();
    sender.reset();
    if (halves.empty()) {
        std::cerr << "krin-perf: no round trip completed" << std::endl;
        return 3;
    }
    if (!options.latencyOut.empty()) {
        writeLatencies(options.latencyOut, halves);
    }
    std::sort(halves.begin(), halves.end());
    std::cout << resultHead("latency", options)
                     .number("wire_bytes", static_cast<double>(wireSizeOf(options.size)), 0)
                     .number("round_trips", static_cast<double>(halves.size()), 0)
                     .number("timed_out", static_cast<double>(timedOut), 0)
                     .number("median_us", percentile(halves, 0.5), 1)
                     .number("p90_us", percentile(halves, 0.9), 1)
                     .number("p99_us", percentile(halves, 0.99), 1)
                     .number("max_us", halves.back(), 1)
                     .line(options.json)
              << std::endl;
    return 0;
}

int runPong(const PerfOptions& options, const Endpoints& endpoints, DriverLink& driver) {
    auto sender = makeSender(options, endpoints, options.portB, pongTopic);
    Sender& answer = *sender;
    auto receiver = makeReceiver(options, endpoints, options.portA, pingTopic,
                                 [&answer](const Stamp& stamp) { answer.send(stamp); });
    if (!sender->awaitSubscribers(subscribersToAwait(options, 1, 1), std::chrono::seconds(30))) {
        return 3;
    }
    driver.say("ready");
    Stopper stopper;
    std::thread quit([&stopper, &driver] {
        std::string line;
        while (driver.hear(line) && line != "quit") {
        }
        stopper.stop();
    });
    receiver->run(stopper, [] {});
    quit.join();
    receiver.reset();
    sender.reset();
    return 0;
}

}  // namespace lumo::perf
