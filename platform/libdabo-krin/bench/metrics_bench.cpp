// What the runtime's counting costs per sample: the runtime's whole path of a
// three-frame sample (1 KiB payload) from a dealer through the forwarding to
// an XPUB, over TCP loopback to a SUB of the same runtime and into a handler,
// with the messages counted and without, measured in the same run.
//
//   metrics_bench [--benchmark_repetitions=N] [google benchmark options]
//
// Each iteration sends a batch of samples and waits until the handler has
// them all. After the runs: the median time per sample of each variant and
// their ratio (counted / uncounted).

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"
#include "tools/common/FreePort.h"

namespace {

using namespace orlo::dabo::krin::detail;

constexpr int samplesPerBatch = 1000;
constexpr std::size_t payloadSize = 1024;

/// Counts the samples it reads; wakes the sender when a batch is in.
class CountingHandler : public EventsHandler {
public:
    bool events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) override {
        if (event != POLLER_READABLE) {
            return true;
        }
        zmq::message_t frame;
        do {
            (void)socket->recv(frame, zmq::recv_flags::dontwait);
        } while (frame.more());
        std::lock_guard<std::mutex> lock(mutex);
        if (++received >= wanted) {
            arrived.notify_all();
        }
        return true;
    }

    void expect(long count) {
        std::lock_guard<std::mutex> lock(mutex);
        wanted += count;
    }

    void waitForAll() {
        std::unique_lock<std::mutex> lock(mutex);
        arrived.wait(lock, [this] { return received >= wanted; });
    }

private:
    std::mutex mutex;
    std::condition_variable arrived;
    long received = 0;
    long wanted = 0;
};

void SamplePath(benchmark::State& state) {
    const bool counted = state.range(0) != 0;
    std::mutex mutex;
    std::condition_variable subscribed;
    bool joined = false;
    KrinDaboTestHooks hooks;
    hooks.messagesUncounted = !counted;
    hooks.subscriptionObserver = [&](const std::string&, bool subscribe, const std::string&) {
        std::lock_guard<std::mutex> lock(mutex);
        joined = joined || subscribe;
        subscribed.notify_all();
    };
    // No high-water mark: every sample arrives, none is dropped.
    auto dabo = KrinDaboTesting::create({{"krin.runtime.highWaterMark", "0"}}, hooks);
    const std::string port = std::to_string(lumo::tools::freeLoopbackPort());
    const std::string frame = createFrame0(static_cast<unsigned int>(orlo::dabo::util::topicNameHash("/bench")));
    auto dealer = dabo->createDealer();
    std::weak_ptr<EventsHandler> noHandler;
    dabo->registerPublisher("tcp://127.0.0.1:" + port, getSocketIdentity(*dealer), noHandler, {});
    auto handler = std::make_shared<CountingHandler>();
    std::weak_ptr<EventsHandler> subscriber = handler;
    dabo->registerSubscriber("krin.ps://127.0.0.1:" + port + "/bench", frame, subscriber);
    {
        std::unique_lock<std::mutex> lock(mutex);
        subscribed.wait(lock, [&] { return joined; });
    }
    const std::string header(32, 'h');
    const std::string payload(payloadSize, 'p');
    for (auto _ : state) {
        handler->expect(samplesPerBatch);
        for (int i = 0; i < samplesPerBatch; ++i) {
            dealer->send(zmq::buffer(frame), zmq::send_flags::sndmore);
            dealer->send(zmq::buffer(header), zmq::send_flags::sndmore);
            dealer->send(zmq::buffer(payload), zmq::send_flags::none);
        }
        handler->waitForAll();
    }
    state.SetItemsProcessed(state.iterations() * samplesPerBatch);
    dealer.reset();
}

/// Prints as the console does, and keeps each variant's median time per sample.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                const bool counted = run.run_name.str().find("counted:1") != std::string::npos;
                (counted ? countedMedian : uncountedMedian) =
                    run.GetAdjustedRealTime() / static_cast<double>(samplesPerBatch);  // per sample
            }
        }
    }

    void printRatio() const {
        if (countedMedian <= 0 || uncountedMedian <= 0) {
            std::printf("no medians: run with --benchmark_repetitions=N (N > 1)\n");
            return;
        }
        std::printf("per sample (median): counted %.2f us, uncounted %.2f us, ratio %.3f\n", countedMedian,
                    uncountedMedian, countedMedian / uncountedMedian);
    }

private:
    double countedMedian = 0;
    double uncountedMedian = 0;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("SamplePath", SamplePath)
        ->ArgName("counted")
        ->Arg(0)
        ->Arg(1)
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime();
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio();
    benchmark::Shutdown();
    return 0;
}
