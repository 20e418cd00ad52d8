// Throughput: one publishing process, one subscribing process (or with
// --in-process, one process with the subscriber on threads of its own).
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

#include "tools/perf/Lines.h"
#include "tools/perf/OneWayDriver.h"
#include "tools/perf/Result.h"
#include "tools/perf/Runs.h"
#include "tools/perf/Transport.h"
#include "lumotypes/host/Runtime.h"

namespace lumo::perf {

namespace {

using Clock = std::chrono::steady_clock;
const char* const throughputTopic = "/perf/throughput";

/// What the subscriber counts. Losses come from gaps in the sample ids that
/// the publisher numbers consecutively: the subscriber side of the plug-in
/// does not hand out the header's own sequence number.
class Tally {
public:
    Tally(double warmupSeconds, double seconds, Stopper& stopper)
        : warmup(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(warmupSeconds))),
          window(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))),
          stopper(stopper) {}

    void take(const Stamp& stamp) {
        const std::uint32_t id = stamp.id;
        if (finished) {
            return;
        }
        const Clock::time_point now = Clock::now();
        if (!seenAny) {
            seenAny = true;
            firstArrival = now;
        } else if (counting && id > expected) {
            lost += id - expected;
        }
        expected = id + 1;
        if (!counting) {
            if (now - firstArrival >= warmup) {
                counting = true;
                start = now;
            }
            return;
        }
        ++received;
        if (now - start >= window) {
            end = now;
            finished = true;
            stopper.stop();
        }
    }

    std::string report() const {
        std::ostringstream line;
        line << received << " " << lost << " " << std::chrono::duration_cast<std::chrono::nanoseconds>(end - start).count();
        return line.str();
    }

private:
    Clock::duration warmup;
    Clock::duration window;
    Stopper& stopper;
    bool seenAny = false;
    bool counting = false;
    bool finished = false;
    std::uint32_t expected = 0;
    unsigned long received = 0;
    unsigned long lost = 0;
    Clock::time_point firstArrival;
    Clock::time_point start;
    Clock::time_point end;
};

/// CPU time and context switches of this process and of its reaped children.
struct ProcessCost {
    double cpuSeconds = 0.0;
    long contextSwitches = 0;

    static ProcessCost ofThisRun() {
        ProcessCost cost;
        for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
            rusage usage{};
            ::getrusage(who, &usage);
            cost.cpuSeconds += static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                               static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
            cost.contextSwitches += usage.ru_nvcsw + usage.ru_nivcsw;
        }
        return cost;
    }
};

}  // namespace

int runThroughputPublisher(const PerfOptions& given, const std::string& self, const lumotypes::host::Plugin* plugin) {
    OneWayDriver driver(given, self, plugin, throughputTopic, "sub");
    const PerfOptions& options = driver.options;
    auto& sender = driver.sender;
    Peer& subscriber = *driver.peer;
    if (!driver.awaitSubscriber()) {
        return 3;
    }
    std::uint32_t id = 0;
    // Paced in bursts of 64 against the clock, so that an offered rate holds
    // on average without a sleep per sample.
    constexpr int burst = 64;
    const Clock::time_point paceStart = Clock::now();
    do {
        for (int n = 0; n < burst; ++n) {
            sender->send({id++, 0});
        }
        if (options.rate > 0) {
            const auto due = paceStart + std::chrono::duration_cast<Clock::duration>(
                                             std::chrono::duration<double>(static_cast<double>(id) / options.rate));
            std::this_thread::sleep_until(due);
        }
    } while (!subscriber.hasOutput());
    const std::string line = subscriber.readLine(std::chrono::seconds(10));
    // Closing the subscriber's input ends it, also if it never got its samples.
    sender.reset();
    subscriber.finish();
    unsigned long received = 0;
    unsigned long lost = 0;
    long long nanos = 0;
    if (std::sscanf(line.c_str(), "%lu %lu %lld", &received, &lost, &nanos) != 3 || nanos <= 0) {
        std::cerr << "krin-perf: the subscriber reported '" << line << "'" << std::endl;
        return 3;
    }
    // Both processes (or both sides in this one) together, over the whole run,
    // per sample offered: what one sample costs the machine, whether or not
    // the window counted it.
    const ProcessCost cost = ProcessCost::ofThisRun();
    const double perSent = id == 0 ? 0.0 : 1.0 / static_cast<double>(id);
    const double samplesPerSecond = static_cast<double>(received) * 1e9 / static_cast<double>(nanos);
    const double megabytesPerSecond = samplesPerSecond * static_cast<double>(options.size) / 1e6;
    const double lossPercent =
        received + lost == 0 ? 0.0 : 100.0 * static_cast<double>(lost) / static_cast<double>(received + lost);
    std::cout << resultHead("throughput", options)
                     .number("wire_bytes", static_cast<double>(wireSizeOf(options.size)), 0)
                     .number("samples_per_s", samplesPerSecond, 0)
                     .number("mb_per_s", megabytesPerSecond, 2)
                     .number("received", static_cast<double>(received), 0)
                     .number("lost", static_cast<double>(lost), 0)
                     .number("loss_pct", lossPercent, 2)
                     .number("sent", static_cast<double>(id), 0)
                     .number("offered_per_s", options.rate, 0)
                     .number("cpu_us_per_sample", cost.cpuSeconds * 1e6 * perSent, 3)
                     .number("switches_per_sample", static_cast<double>(cost.contextSwitches) * perSent, 4)
                     .line(options.json)
              << std::endl;
    return 0;
}

int runThroughputSubscriber(const PerfOptions& options, const Endpoints& endpoints, DriverLink& driver) {
    Stopper stopper;
    Tally tally(options.warmupSeconds, options.seconds, stopper);
    // The publisher closes this side's input when it gives up, or once it has the report.
    std::thread publisherGone([&stopper, &driver] {
        std::string ignored;
        while (driver.hear(ignored)) {
        }
        stopper.stop();
    });
    {
        auto receiver = makeReceiver(options, endpoints, options.portA, throughputTopic,
                                     [&tally](const Stamp& stamp) { tally.take(stamp); });
        receiver->run(stopper, [] {});
    }
    driver.say(tally.report());
    publisherGone.join();
    return 0;
}

}  // namespace lumo::perf
