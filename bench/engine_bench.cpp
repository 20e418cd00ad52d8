// The queued subscription engine on its own: samples per second handed to
// newData and taken by read, and handed to newData with a listener that
// consumes them, for a small topic (RefPos) and a large one (HokuTopicIn
// with 4096 floats). Each sample is made as the receive path makes it: a new
// binding object parsed from wire bytes. Heap allocations per sample are
// counted; "Parse" alone shows the receive path's share, so the engine's
// own is the difference.

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "AllocationCounter.h"
#include "FillMessage.h"
#include "Lumotypes.pb.h"
#include "dabo/ps/queue/QueuedSubscriberImpl.h"
#include "lumotypes/krin/LumotypesImpl.h"

namespace {

template <typename T, typename ST>
using Engine = orlo::dabo::ps::queue::detail::QueuedSubscriberImpl<T, ST>;

template <typename ST>
std::string wireBytes(int arrayLength) {
    ST source;
    lumo::bench::fillMessage(source.wireMessage(), arrayLength);
    return source.wireMessage().SerializeAsString();
}

template <typename T, typename ST>
std::unique_ptr<T> received(const std::string& bytes) {
    auto entity = std::make_unique<ST>();
    entity->fromByteArray(bytes.data(), bytes.size());
    return std::unique_ptr<T>(entity.release());
}

void countPerSample(benchmark::State& state, long before) {
    state.counters["allocations_per_sample"] = benchmark::Counter(
        static_cast<double>(lumo::bench::allocations.load() - before) / static_cast<double>(state.iterations()));
    state.SetItemsProcessed(state.iterations());
}

template <typename T, typename ST>
void Parse(benchmark::State& state) {
    const std::string bytes = wireBytes<ST>(static_cast<int>(state.range(0)));
    const long before = lumo::bench::allocations.load();
    for (auto _ : state) {
        benchmark::DoNotOptimize(received<T, ST>(bytes));
    }
    countPerSample(state, before);
}

template <typename T, typename ST>
void NewDataThenRead(benchmark::State& state) {
    const std::string bytes = wireBytes<ST>(static_cast<int>(state.range(0)));
    auto engine = std::make_shared<Engine<T, ST>>(std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>{});
    const long before = lumo::bench::allocations.load();
    for (auto _ : state) {
        engine->newData(received<T, ST>(bytes), 1.7e9, 1, 1700000000000L);
        benchmark::DoNotOptimize(engine->read(0));
    }
    countPerSample(state, before);
}

template <typename T, typename ST>
void NewDataToListener(benchmark::State& state) {
    const std::string bytes = wireBytes<ST>(static_cast<int>(state.range(0)));
    auto engine = std::make_shared<Engine<T, ST>>(std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>{});
    unsigned long heard = 0;
    auto subscription = engine->subscribeAsync(orlo::dabo::ps::DataEventFilter<T>(),
                                               [&heard](orlo::dabo::ps::Subscriber<T>&,
                                                        const orlo::dabo::ps::DataEvent<T>&) { ++heard; });
    const long before = lumo::bench::allocations.load();
    for (auto _ : state) {
        engine->newData(received<T, ST>(bytes), 1.7e9, 1, 1700000000000L);
    }
    countPerSample(state, before);
    subscription->close();
    benchmark::DoNotOptimize(heard);
}

}  // namespace

BENCHMARK_TEMPLATE(Parse, lumotypes::RefPos, lumotypes::krin::RefPosImpl)->Name("Parse/RefPos")->Arg(0);
BENCHMARK_TEMPLATE(Parse, lumotypes::HokuTopicIn, lumotypes::krin::HokuTopicInImpl)->Name("Parse/HokuTopicIn")->Arg(4096);
BENCHMARK_TEMPLATE(NewDataThenRead, lumotypes::RefPos, lumotypes::krin::RefPosImpl)->Name("NewDataThenRead/RefPos")->Arg(0);
BENCHMARK_TEMPLATE(NewDataThenRead, lumotypes::HokuTopicIn, lumotypes::krin::HokuTopicInImpl)
    ->Name("NewDataThenRead/HokuTopicIn")
    ->Arg(4096);
BENCHMARK_TEMPLATE(NewDataToListener, lumotypes::RefPos, lumotypes::krin::RefPosImpl)
    ->Name("NewDataToListener/RefPos")
    ->Arg(0);
BENCHMARK_TEMPLATE(NewDataToListener, lumotypes::HokuTopicIn, lumotypes::krin::HokuTopicInImpl)
    ->Name("NewDataToListener/HokuTopicIn")
    ->Arg(4096);

BENCHMARK_MAIN();
