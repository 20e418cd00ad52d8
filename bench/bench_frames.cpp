// Frame benchmark: how many three-frame samples (1 KiB payload) per second the
// transport runtime carries from one process to another over TCP loopback,
// against a baseline measured in the same run: plain ZeroMQ PUB->SUB of the
// same frames, without the runtime's dealer->router hop and event dispatch.
//
//   bench_frames [--samples N] [--rounds R]
//
// Each round runs both variants; the receiving side is a child process that
// times from the first sample to the end marker. Reported: the median rate
// of each variant and their ratio.

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cstdint>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "dabo/krin/probe/JoinWatch.h"
#include "dabo/krin/probe/RawPipeline.h"
#include "lumotypes/host/Runtime.h"
#include "tools/common/FreePort.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t payloadSize = 1024;
/// The id of the sample that ends a round.
constexpr std::uint32_t endMarker = 0xFFFFFFFFu;
const std::string topic = "/bench";
// No high-water mark anywhere: the benchmark measures throughput, not drops.
const orlo::dabo::Dabo::Properties unlimited{{"krin.runtime.highWaterMark", "0"}};

/// The baseline's topic frame: four bytes, as the runtime's.
const std::string baselineFrame("\x00\x00\x00\x2a", 4);
/// The baseline's header frame, about as long as the runtime's.
const std::string baselineHeader(20, 'h');

unsigned int freePort() { return static_cast<unsigned int>(lumo::tools::freeLoopbackPort()); }

void sendSamples(zmq::socket_t& socket, unsigned long samples) {
    std::string payload(payloadSize, 'p');
    for (unsigned long i = 0; i <= samples; ++i) {
        const std::uint32_t id = i < samples ? static_cast<std::uint32_t>(i) : endMarker;
        std::memcpy(payload.data(), &id, sizeof id);
        socket.send(zmq::buffer(baselineFrame), zmq::send_flags::sndmore);
        socket.send(zmq::buffer(baselineHeader), zmq::send_flags::sndmore);
        socket.send(zmq::buffer(payload), zmq::send_flags::none);
    }
}

/// Counts samples and times them from the first to the end marker.
struct Tally {
    unsigned long received = 0;
    Clock::time_point first;
    Clock::time_point last;
    bool done = false;

    // Returns true once the end marker is in.
    bool take(std::uint32_t id) {
        if (received == 0) {
            first = Clock::now();
        }
        if (id == endMarker) {
            last = Clock::now();
            done = true;
            return true;
        }
        ++received;
        return false;
    }
    void report() const {
        std::cout << received << " " << std::chrono::duration_cast<std::chrono::nanoseconds>(last - first).count()
                  << std::endl;
    }
};

// ---- receiving side (child process) ----

int receiveBaseline(unsigned int port) {
    zmq::context_t context;
    zmq::socket_t sub(context, zmq::socket_type::sub);
    sub.set(zmq::sockopt::rcvhwm, 0);
    sub.set(zmq::sockopt::subscribe, baselineFrame);
    sub.connect("tcp://127.0.0.1:" + std::to_string(port));
    Tally tally;
    while (!tally.done) {
        zmq::message_t topic, header, payload;
        (void)sub.recv(topic);
        (void)sub.recv(header);
        (void)sub.recv(payload);
        std::uint32_t id = 0;
        std::memcpy(&id, payload.data(), sizeof id);
        tally.take(id);
    }
    tally.report();
    return 0;
}

int receiveThroughRuntime(unsigned int port) {
    auto dabo = lumotypes::host::createRuntime(unlimited);
    Tally tally;
    std::mutex mutex;
    std::condition_variable finished;
    orlo::dabo::krin::probe::RawReceiver receiver(
        dabo, "krin.ps://127.0.0.1:" + std::to_string(port) + topic, topic, [&](std::uint32_t id) {
            if (tally.take(id)) {
                std::lock_guard<std::mutex> lock(mutex);
                finished.notify_all();
            }
        });
    {
        std::unique_lock<std::mutex> lock(mutex);
        finished.wait(lock, [&] { return tally.done; });
    }
    tally.report();
    return 0;
}

// ---- sending side (this process) ----

/// Starts the receiving child; returns its pid and the read end of its output.
std::pair<pid_t, FILE*> startReceiver(const char* self, const std::string& mode, unsigned int port) {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
        std::perror("pipe");
        std::exit(1);
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(pipeFds[1], STDOUT_FILENO);
        const std::string portText = std::to_string(port);
        ::execl(self, self, "--receive", mode.c_str(), portText.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(pipeFds[1]);
    return {pid, ::fdopen(pipeFds[0], "r")};
}

double finishReceiver(std::pair<pid_t, FILE*> receiver) {
    unsigned long received = 0;
    long long nanos = 0;
    if (std::fscanf(receiver.second, "%lu %lld", &received, &nanos) != 2 || nanos <= 0) {
        std::cerr << "receiver reported nothing" << std::endl;
        std::exit(1);
    }
    std::fclose(receiver.second);
    ::waitpid(receiver.first, nullptr, 0);
    return static_cast<double>(received) * 1e9 / static_cast<double>(nanos);
}

double runBaseline(const char* self, unsigned long samples) {
    const unsigned int port = freePort();
    zmq::context_t context;
    zmq::socket_t xpub(context, zmq::socket_type::xpub);
    xpub.set(zmq::sockopt::sndhwm, 0);
    xpub.bind("tcp://127.0.0.1:" + std::to_string(port));
    auto receiver = startReceiver(self, "baseline", port);
    zmq::message_t subscription;
    (void)xpub.recv(subscription);  // the receiver has joined
    sendSamples(xpub, samples);
    const double rate = finishReceiver(receiver);
    return rate;
}

double runThroughRuntime(const char* self, unsigned long samples) {
    const unsigned int port = freePort();
    orlo::dabo::krin::probe::JoinWatch joins(unlimited);
    auto sender = std::make_unique<orlo::dabo::krin::probe::RawSender>(joins.runtime(), static_cast<int>(port), topic,
                                                                        payloadSize);
    auto receiver = startReceiver(self, "runtime", port);
    if (!joins.await(1, std::chrono::seconds(20))) {
        std::cerr << "the receiver never subscribed" << std::endl;
        std::exit(1);
    }
    for (unsigned long i = 0; i <= samples; ++i) {
        sender->send(i < samples ? static_cast<std::uint32_t>(i) : endMarker);
    }
    const double rate = finishReceiver(receiver);
    sender.reset();
    return rate;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::string(argv[1]) == "--receive") {
        const unsigned int port = static_cast<unsigned int>(std::stoul(argv[3]));
        return std::string(argv[2]) == "baseline" ? receiveBaseline(port) : receiveThroughRuntime(port);
    }
    unsigned long samples = 200000;
    int rounds = 3;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option(argv[i]);
        if (option == "--samples") {
            samples = std::stoul(argv[i + 1]);
        } else if (option == "--rounds") {
            rounds = std::stoi(argv[i + 1]);
        }
    }
    std::vector<double> baseline;
    std::vector<double> runtime;
    for (int round = 0; round < rounds; ++round) {
        baseline.push_back(runBaseline(argv[0], samples));
        runtime.push_back(runThroughRuntime(argv[0], samples));
    }
    const double baselineRate = median(baseline);
    const double runtimeRate = median(runtime);
    std::printf("bench_frames: 3 frames per sample, %zu B payload, %lu samples, %d rounds, two processes, TCP loopback\n",
                payloadSize, samples, rounds);
    std::printf("  baseline  ZeroMQ PUB->SUB without the runtime : %12.0f samples/s (1.00)\n", baselineRate);
    std::printf("  runtime   dealer->ROUTER->XPUB->SUB + events  : %12.0f samples/s (%.2f of baseline)\n", runtimeRate,
                runtimeRate / baselineRate);
    return 0;
}
