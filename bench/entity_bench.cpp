// Binding overhead: toByteArray and fromByteArray of every topic against the
// message library's own ByteSizeLong + SerializeToArray and ParseFromArray on
// the same message and into the same kind of buffer; getX views of an array
// against copying it. Each pair runs in the same process, so the ratio
// between them is the result (scripts/perf.sh computes it).

#include <benchmark/benchmark.h>

#include <string>
#include <vector>
#include <zmq.hpp>

#include "FillMessage.h"
#include "Lumotypes.pb.h"
#include "lumotypes/Topics.h"
#include "lumotypes/krin/LumotypesImpl.h"

namespace {

// Arrays of 256 floats: 1 KiB per array field.
constexpr int arrayLength = 256;

template <typename ST>
void filled(ST& entity) {
    lumo::bench::fillMessage(entity.wireMessage(), arrayLength);
}

template <typename ST>
void ToByteArray(benchmark::State& state) {
    ST entity;
    filled(entity);
    zmq::message_t target;
    for (auto _ : state) {
        benchmark::DoNotOptimize(entity.toByteArray(target));
    }
    state.SetBytesProcessed(static_cast<long>(state.iterations() * target.size()));
}

template <typename ST>
void SerializeToArray(benchmark::State& state) {
    ST entity;
    filled(entity);
    const typename ST::WireMessage& message = entity.wireMessage();
    zmq::message_t target;
    for (auto _ : state) {
        const std::size_t size = message.ByteSizeLong();
        target.rebuild(size);
        benchmark::DoNotOptimize(message.SerializeToArray(target.data(), static_cast<int>(size)));
    }
    state.SetBytesProcessed(static_cast<long>(state.iterations() * target.size()));
}

template <typename ST>
void FromByteArray(benchmark::State& state) {
    ST source;
    filled(source);
    const std::string bytes = source.wireMessage().SerializeAsString();
    ST entity;
    for (auto _ : state) {
        benchmark::DoNotOptimize(entity.fromByteArray(bytes.data(), bytes.size()));
    }
    state.SetBytesProcessed(static_cast<long>(state.iterations() * bytes.size()));
}

template <typename ST>
void ParseFromArray(benchmark::State& state) {
    ST source;
    filled(source);
    const std::string bytes = source.wireMessage().SerializeAsString();
    typename ST::WireMessage message;
    for (auto _ : state) {
        benchmark::DoNotOptimize(message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
    }
    state.SetBytesProcessed(static_cast<long>(state.iterations() * bytes.size()));
}

void GetCoefficientsView(benchmark::State& state) {
    lumotypes::krin::HokuTopicInImpl entity;
    entity.setCoefficients(orlo::dabo::shared_vector<const float>(std::vector<float>(state.range(0), 0.5f)));
    for (auto _ : state) {
        auto view = entity.getCoefficients();
        benchmark::DoNotOptimize(view.data());
    }
}

void CopyCoefficients(benchmark::State& state) {
    lumotypes::krin::HokuTopicInImpl entity;
    entity.setCoefficients(orlo::dabo::shared_vector<const float>(std::vector<float>(state.range(0), 0.5f)));
    const auto& field = entity.wireMessage().coefficients();
    for (auto _ : state) {
        std::vector<float> copy(field.begin(), field.end());
        benchmark::DoNotOptimize(copy.data());
    }
}

}  // namespace

int main(int argc, char** argv) {
#define LUMO_BENCH_TOPIC(Name)                                                                                 \
    benchmark::RegisterBenchmark("ToByteArray/" #Name, ToByteArray<lumotypes::krin::Name##Impl>);              \
    benchmark::RegisterBenchmark("SerializeToArray/" #Name, SerializeToArray<lumotypes::krin::Name##Impl>);    \
    benchmark::RegisterBenchmark("FromByteArray/" #Name, FromByteArray<lumotypes::krin::Name##Impl>);          \
    benchmark::RegisterBenchmark("ParseFromArray/" #Name, ParseFromArray<lumotypes::krin::Name##Impl>);
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_BENCH_TOPIC)
#undef LUMO_BENCH_TOPIC
    benchmark::RegisterBenchmark("GetCoefficientsView", GetCoefficientsView)->Arg(16)->Arg(256)->Arg(16384);
    benchmark::RegisterBenchmark("CopyCoefficients", CopyCoefficients)->Arg(16)->Arg(256)->Arg(16384);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
