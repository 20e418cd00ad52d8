// Loop: the field stabilisation loop's input topic at its real rate. The
// publisher keeps an absolute schedule (each sample due at start + n / rate,
// so that a late wake-up does not shift the ones after it) and stamps every
// sample with its send time on the steady clock, which on Linux is one clock
// for every process of the machine; the subscriber takes arrival minus send
// time as the sample's one-way latency.
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <thread>
#include <vector>

#include "tools/common/CommandLine.h"
#include "tools/common/StopSignal.h"
#include "tools/perf/Latencies.h"
#include "tools/perf/Lines.h"
#include "tools/perf/OneWayDriver.h"
#include "tools/perf/Result.h"
#include "tools/perf/Runs.h"
#include "tools/perf/Transport.h"

namespace lumo::perf {

namespace {

using Clock = std::chrono::steady_clock;
const char* const loopTopic = "/perf/loop";
/// A sample later than this misses the loop's cycle at 1 kHz.
constexpr double lateMicroseconds = 1000.0;
/// How long the subscriber waits for the last samples once the publisher is done.
constexpr auto tailLimit = std::chrono::seconds(1);
constexpr auto progressEvery = std::chrono::seconds(5);

std::int64_t nanosOf(Clock::time_point at) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(at.time_since_epoch()).count();
}

/// Sleeps until `due` on the monotonic clock, the steady clock's own, waking
/// at least every 100 ms to see a stop; false if stopped.
bool sleepUntil(Clock::time_point due, const lumo::tools::StopSignal& stop) {
    while (!stop.stopped()) {
        const Clock::time_point now = Clock::now();
        if (now >= due) {
            return true;
        }
        const std::int64_t until = nanosOf(std::min(due, now + std::chrono::milliseconds(100)));
        const timespec at{static_cast<time_t>(until / 1000000000), static_cast<long>(until % 1000000000)};
        ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr);
    }
    return false;
}

/// What the subscriber measures: every latency in arrival order, and the
/// samples missing, told by gaps in the ids that the publisher numbers from 0.
class LoopTally {
public:
    explicit LoopTally(std::size_t expected) { latencies.reserve(expected); }

    void take(const Stamp& stamp) {
        const std::int64_t arrived = nanosOf(Clock::now());
        {
            std::lock_guard<std::mutex> lock(mutex);
            latencies.push_back(static_cast<double>(arrived - stamp.sentNanos) / 1e3);
            if (stamp.id >= nextId) {
                gaps += stamp.id - nextId;
                nextId = stamp.id + 1;
            }
        }
        changed.notify_all();
    }

    /// Waits until the last of `total` samples came, at most `limit`.
    void awaitLast(std::uint32_t total, std::chrono::milliseconds limit) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait_for(lock, limit, [&] { return nextId >= total; });
    }

    /// "received lost late p50 p99 p99.9 max", the figures the publisher reports.
    std::string report(std::uint32_t total, const std::string& latencyOut) {
        std::lock_guard<std::mutex> lock(mutex);
        if (!latencyOut.empty()) {
            writeLatencies(latencyOut, latencies);
        }
        const unsigned long lost = gaps + (total > nextId ? total - nextId : 0);
        std::ostringstream line;
        line << latencies.size() << " " << lost;
        if (latencies.empty()) {
            line << " 0 0 0 0 0";
            return line.str();
        }
        std::vector<double> sorted = latencies;
        std::sort(sorted.begin(), sorted.end());
        const auto late = sorted.end() - std::upper_bound(sorted.begin(), sorted.end(), lateMicroseconds);
        line << " " << late << " " << percentile(sorted, 0.5) << " " << percentile(sorted, 0.99) << " "
             << percentile(sorted, 0.999) << " " << sorted.back();
        return line.str();
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<double> latencies;
    std::uint32_t nextId = 0;
    unsigned long gaps = 0;
};

/// The subscriber's figures, as its report line carries them.
struct LoopFigures {
    unsigned long received = 0;
    unsigned long lost = 0;
    unsigned long late = 0;
    double p50 = 0;
    double p99 = 0;
    double p999 = 0;
    double max = 0;

    bool parse(const std::string& line) {
        return std::sscanf(line.c_str(), "%lu %lu %lu %lf %lf %lf %lf", &received, &lost, &late, &p50, &p99, &p999,
                           &max) == 7;
    }
};

/// Sends the loop's samples on schedule from `start` until all are sent or a
/// signal comes; how many were sent.
std::uint32_t publishOnSchedule(Sender& sender, const PerfOptions& options, Clock::time_point start) {
    const lumo::tools::StopSignal& stop = lumo::tools::StopSignal::install();
    const auto total = static_cast<std::uint32_t>(options.rate * options.seconds + 0.5);
    const std::chrono::duration<double> period(1.0 / options.rate);
    Clock::time_point nextProgress = start + progressEvery;
    std::uint32_t sent = 0;
    while (sent < total &&
           sleepUntil(start + std::chrono::duration_cast<Clock::duration>(period * static_cast<double>(sent)), stop)) {
        sender.send({sent, nanosOf(Clock::now())});
        ++sent;
        if (Clock::now() >= nextProgress) {
            const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start);
            std::cerr << "krin-perf: loop " << elapsed.count() << " s of " << options.seconds << ", " << sent << " of "
                      << total << " samples sent" << std::endl;
            nextProgress += progressEvery;
        }
    }
    return sent;
}

}  // namespace

int runLoopPublisher(const PerfOptions& given, const std::string& self, const lumotypes::host::Plugin* plugin) {
    OneWayDriver driver(given, self, plugin, loopTopic, "loop-sub");
    if (!driver.awaitSubscriber()) {
        return lumo::tools::exitSetup;
    }
    Peer& subscriber = *driver.peer;
    if (subscriber.readLine(std::chrono::seconds(30)) != "ready") {
        std::cerr << "krin-perf: the subscriber never began to take samples" << std::endl;
        return lumo::tools::exitSetup;
    }
    const PerfOptions& options = driver.options;
    const Clock::time_point start = Clock::now();
    const std::uint32_t sent = publishOnSchedule(*driver.sender, options, start);
    const double sendingSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    subscriber.writeLine("end " + std::to_string(sent));
    const std::string line = subscriber.readLine(std::chrono::seconds(60));
    driver.sender.reset();
    subscriber.finish();
    LoopFigures figures;
    if (!figures.parse(line)) {
        std::cerr << "krin-perf: the subscriber reported '" << line << "'" << std::endl;
        return lumo::tools::exitSetup;
    }
    if (figures.received == 0) {
        std::cerr << "krin-perf: no sample of " << sent << " arrived" << std::endl;
        return lumo::tools::exitFailed;
    }
    std::cout << resultHead("loop", options)
                     .number("wire_bytes", static_cast<double>(loopWireSizeOf(options.size)), 0)
                     .number("rate_hz", options.rate, 1)
                     .number("seconds", sendingSeconds, 2)
                     .number("sent", static_cast<double>(sent), 0)
                     .number("received", static_cast<double>(figures.received), 0)
                     .number("lost", static_cast<double>(figures.lost), 0)
                     .number("late_1ms", static_cast<double>(figures.late), 0)
                     .number("p50_us", figures.p50, 1)
                     .number("p99_us", figures.p99, 1)
                     .number("p999_us", figures.p999, 1)
                     .number("max_us", figures.max, 1)
                     .line(options.json)
              << std::endl;
    return lumo::tools::exitOk;
}

int runLoopSubscriber(const PerfOptions& options, const Endpoints& endpoints, DriverLink& driver) {
    LoopTally tally(static_cast<std::size_t>(std::min(options.rate * options.seconds * 1.01 + 16, maxLoopSamples)));
    Stopper stopper;
    std::uint32_t total = 0;
    // The publisher says "end N" after its last sample; the samples still on
    // their way get a bounded time to arrive before the subscriber closes.
    std::thread publisherDone([&] {
        std::string line;
        while (driver.hear(line)) {
            if (std::sscanf(line.c_str(), "end %u", &total) == 1) {
                tally.awaitLast(total, tailLimit);
                break;
            }
        }
        stopper.stop();
    });
    {
        auto receiver = makeReceiver(options, endpoints, options.portA, loopTopic,
                                     [&tally](const Stamp& stamp) { tally.take(stamp); });
        receiver->run(stopper, [&driver] { driver.say("ready"); });
    }
    publisherDone.join();
    driver.say(tally.report(total, options.latencyOut));
    return 0;
}

}  // namespace lumo::perf
