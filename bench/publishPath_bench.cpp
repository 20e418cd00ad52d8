// Cost of one publish: calls per second into a dealer with no peer (every
// frame meets EAGAIN and is dropped) and into the runtime (frames forwarded
// to an endpoint), and C++ heap allocations per publish.
//
// The allocation counter sees operator new only. ZeroMQ allocates the
// payload buffer with malloc, so it is not in the count.

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <new>

#include "lumotypes/Lumotypes.h"
#include "lumotypes/krin/LumotypesImpl.h"
#include "publisherTestSupport.h"

namespace {
std::atomic<long> allocations{0};
}

void* operator new(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}
// The replaced operator new above allocates with malloc, so free is the match;
// the compiler cannot see that pairing across the replacement.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
#pragma GCC diagnostic pop

namespace {

using namespace std::chrono_literals;
using RefPosPublisher = lumo::test::InspectablePublisher<lumotypes::RefPos, lumotypes::krin::RefPosImpl>;

std::shared_ptr<lumotypes::RefPos> sample() {
    std::shared_ptr<lumotypes::RefPos> entity = std::make_shared<lumotypes::krin::RefPosImpl>();
    entity->setRefPosX(1);
    entity->setRefPosY(2);
    entity->setCentBoxWidth(3);
    entity->setCentBoxHeight(4);
    return entity;
}

void publishLoop(benchmark::State& state, RefPosPublisher& publisher) {
    auto entity = sample();
    const long before = allocations.load();
    for (auto _ : state) {
        publisher.publish(*entity, 100ms);
    }
    state.counters["allocations_per_publish"] =
        benchmark::Counter(static_cast<double>(allocations.load() - before) / static_cast<double>(state.iterations()));
    state.SetItemsProcessed(state.iterations());
}

void PublishWithoutPeer(benchmark::State& state) {
    auto dabo = orlo::dabo::krin::detail::KrinDabo::create({});
    auto publisher = std::make_shared<RefPosPublisher>(lumo::test::freshTopicUri(), orlo::dabo::krin::detail::ps::QoSList{},
                                                       orlo::dabo::Dabo::Properties{}, dabo);
    publisher->init();
    lumo::test::UnconnectedDealer nowhere;
    lumo::test::DealerExchange<RefPosPublisher> exchange(*publisher, nowhere.get());
    publishLoop(state, *publisher);
}

void PublishThroughTheRuntime(benchmark::State& state) {
    auto dabo = orlo::dabo::krin::detail::KrinDabo::create({});
    auto publisher = std::make_shared<RefPosPublisher>(lumo::test::freshTopicUri(), orlo::dabo::krin::detail::ps::QoSList{},
                                                       orlo::dabo::Dabo::Properties{}, dabo);
    publisher->init();
    publishLoop(state, *publisher);
}

BENCHMARK(PublishWithoutPeer);
BENCHMARK(PublishThroughTheRuntime);

}  // namespace

BENCHMARK_MAIN();
