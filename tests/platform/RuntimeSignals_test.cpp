// The runtime's threads leave the host's signals to the host's threads: a
// signal sent while samples flow interrupts none of the runtime's waits, and
// creating a runtime leaves the creating thread's signal mask as it was.

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "KrinTestSupport.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "dabo/krin/detail/KrinHelpers.h"

namespace {

using namespace orlo::dabo::krin::detail;
using lumo::test::Message;
using lumo::test::RecordingHandler;
using lumo::test::frameOf;
using lumo::test::freePort;
using lumo::test::sampleFrames;
using lumo::test::sendMessage;

const std::string topic = "/signals";

/// The task ids of this process's threads named `name`.
std::vector<pid_t> threadsNamed(const std::string& name) {
    std::vector<pid_t> found;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream comm(task.path() / "comm");
        std::string line;
        if (std::getline(comm, line) && line == name) {
            found.push_back(static_cast<pid_t>(std::stol(task.path().filename().string())));
        }
    }
    return found;
}

/// The task id of `dabo`'s thread, as seen from an event it raises.
pid_t runtimeThreadOf(KrinDabo& dabo) {
    auto marker = std::make_shared<RecordingHandler>();
    std::atomic<pid_t> thread{0};
    marker->onEvent = [&thread](KrinDaboEvent) { thread = static_cast<pid_t>(syscall(SYS_gettid)); };
    std::weak_ptr<EventsHandler> handler = marker;
    std::shared_ptr<zmq::socket_t> noSocket;
    dabo.unregisterSubscriber(noSocket, handler);
    EXPECT_TRUE(marker->waitFor(UNREGISTERED));
    return thread;
}

/// The signals task `tid` of this process blocks, as the kernel reports them.
std::uint64_t blockedSignalsOf(pid_t tid) {
    std::ifstream status("/proc/self/task/" + std::to_string(tid) + "/status");
    const std::string key = "SigBlk:";
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(key, 0) == 0) {
            return std::stoull(line.substr(key.size()), nullptr, 16);
        }
    }
    ADD_FAILURE() << "no " << key << " for task " << tid;
    return 0;
}

bool blocks(std::uint64_t mask, int signal) { return (mask >> (signal - 1) & 1) != 0; }

void expectHostSignalsHeldBack(std::uint64_t mask) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGALRM, SIGUSR1, SIGUSR2, SIGCHLD, SIGPIPE, SIGPROF}) {
        EXPECT_TRUE(blocks(mask, signal)) << strsignal(signal);
    }
}

void expectHostSignalsHeldBackButFaultsNot(std::uint64_t mask) {
    expectHostSignalsHeldBack(mask);
    // A fault raised by the thread's own code must reach it, or the process
    // would die without its handler (a crash reporter, a sanitizer) running.
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
        EXPECT_FALSE(blocks(mask, signal)) << strsignal(signal);
    }
}

std::atomic<unsigned> signalsTaken{0};

void countSignal(int) { signalsTaken.fetch_add(1, std::memory_order_relaxed); }

/// Sends SIGUSR1 to one thread of this process, again and again, until
/// destroyed. The handler is installed without SA_RESTART, so that any wait
/// of the thread that took the signal would end early with EINTR.
class SignalStorm {
public:
    explicit SignalStorm(pid_t target) {
        struct sigaction action {};
        action.sa_handler = countSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = 0;
        sigaction(SIGUSR1, &action, &previous);
        std::promise<void> firstSent;
        std::future<void> started = firstSent.get_future();
        sender = std::thread([this, target, &firstSent] {
            while (!stopped) {
                syscall(SYS_tgkill, getpid(), target, SIGUSR1);
                if (sent++ == 0) {
                    firstSent.set_value();
                }
                std::this_thread::yield();
            }
        });
        // The storm is on before the caller goes on.
        started.wait();
    }

    ~SignalStorm() {
        stopped = true;
        sender.join();
        sigaction(SIGUSR1, &previous, nullptr);
    }

    unsigned long signalsSent() const { return sent; }

private:
    struct sigaction previous {};
    std::atomic<bool> stopped{false};
    std::atomic<unsigned long> sent{0};
    std::thread sender;
};

TEST(RuntimeSignalsTest, TheRuntimesThreadHoldsBackTheHostsSignalsButNotFaults) {
    const auto dabo = KrinDabo::create({});
    const pid_t runtime = runtimeThreadOf(*dabo);
    ASSERT_NE(runtime, 0);
    expectHostSignalsHeldBackButFaultsNot(blockedSignalsOf(runtime));
}

TEST(RuntimeSignalsTest, TheMetricsServersThreadsHoldBackTheHostsSignalsToo) {
    const auto dabo = KrinDabo::create({{"krin.runtime.metricsAddress", "127.0.0.1:0"}});
    // The server's workers take their name from its thread; one may still be
    // starting, with every signal blocked for a moment, so faults are not
    // looked at here.
    const std::vector<pid_t> server = threadsNamed("krin-metrics");
    ASSERT_FALSE(server.empty());
    for (const pid_t thread : server) {
        expectHostSignalsHeldBack(blockedSignalsOf(thread));
    }
}

TEST(RuntimeSignalsTest, CreatingARuntimeLeavesTheCreatingThreadsSignalMaskAsItWas) {
    sigset_t before;
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    const auto dabo = KrinDabo::create({{"krin.runtime.metricsAddress", "127.0.0.1:0"}});
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << strsignal(signal);
    }
}

class SignalsWhileSamplesFlowTest : public ::testing::TestWithParam<bool> {};

TEST_P(SignalsWhileSamplesFlowTest, SignalsAimedAtTheRuntimesThreadCostNoSample) {
    const unsigned int port = freePort();
    const std::string endpoint = "tcp://127.0.0.1:" + std::to_string(port);
    const std::string uri = "krin.ps://127.0.0.1:" + std::to_string(port) + topic;
    lumo::test::SubscriptionCount subscriptions;
    KrinDaboTestHooks hooks;
    hooks.subscriptionObserver = subscriptions.observer();
    const auto dabo = KrinDaboTesting::create({{"krin.runtime.inProcess", GetParam() ? "true" : "false"}}, hooks);

    const auto dealer = dabo->createDealer();
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> publisherHandler = publisher;
    dabo->registerPublisher(endpoint, getSocketIdentity(*dealer), publisherHandler, {});
    ASSERT_TRUE(publisher->waitFor(REGISTERED));
    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> subscriberHandler = subscriber;
    dabo->registerSubscriber(uri, frameOf(topic), subscriberHandler);
    ASSERT_TRUE(subscriber->waitFor(REGISTERED));
    ASSERT_TRUE(subscriptions.waitFor(1));
    const pid_t runtime = runtimeThreadOf(*dabo);
    ASSERT_NE(runtime, 0);

    constexpr unsigned int sampleCount = 500;
    std::vector<Message> samples;
    for (unsigned int i = 0; i < sampleCount; ++i) {
        samples.push_back(sampleFrames(frameOf(topic), "pub", i, 256));
    }
    unsigned long signalsSent = 0;
    {
        SignalStorm storm(runtime);
        for (const Message& sample : samples) {
            sendMessage(*dealer, sample);
        }
        ASSERT_TRUE(subscriber->waitForMessages(sampleCount)) << subscriber->messages().size() << " received";
        signalsSent = storm.signalsSent();
    }
    EXPECT_GT(signalsSent, 0u);
    EXPECT_EQ(subscriber->messages(), samples);
    EXPECT_EQ(subscriber->count(UNREGISTERED), 0u);
}

INSTANTIATE_TEST_SUITE_P(InProcessAndOverTcp, SignalsWhileSamplesFlowTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "InProcess" : "OverTcp";
                         });

}  // namespace
