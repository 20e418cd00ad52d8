#include "dabo/krin/detail/KrinDabo.h"

#include <climits>
#include <future>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "HostSignals.h"
#include "KrinRuntime.h"
#include "MetricsServer.h"
#include "ProtobufLogRouting.h"
#include "dabo/krin/detail/RuntimeSeam.h"
#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"

namespace orlo::dabo::krin::detail {

namespace {

constexpr long defaultHighWaterMark = 1000;
const char* const highWaterMarkProperty = "krin.runtime.highWaterMark";

int highWaterMarkOf(const orlo::dabo::Dabo::Properties& properties) {
    const long value = orlo::dabo::util::getLongProperty(properties, highWaterMarkProperty, defaultHighWaterMark);
    if (value < 0 || value > INT_MAX) {
        throw DaboException(std::string("Property ") + highWaterMarkProperty + " has value '" + std::to_string(value) +
                            "', which is not a message count");
    }
    return static_cast<int>(value);
}

std::atomic<unsigned long> dealerCount{0};

/// True for a handler that was never set, as opposed to one whose owner is gone.
bool isEmpty(const std::weak_ptr<EventsHandler>& handler) {
    const std::weak_ptr<EventsHandler> none;
    return !handler.owner_before(none) && !none.owner_before(handler);
}

bool isImmediate(const EventDelivery& delivery) {
    return delivery.mode == EventDelivery::Mode::Immediately;
}

/// Event threads of runtimes whose last reference was dropped on that very
/// thread, inside an event. Such a thread cannot wait for itself; it finishes
/// tearing its runtime down on its own, and is joined here: by the next
/// runtime released normally, and at the latest when the process exits, so
/// that no runtime is still closing sockets while the process's statics (the
/// logging library's among them) are destroyed.
class SelfReleasedThreads {
public:
    static SelfReleasedThreads& instance() {
        static SelfReleasedThreads threads;
        return threads;
    }

    void adopt(std::thread thread) {
        std::lock_guard<std::mutex> lock(mutex);
        threads.push_back(std::move(thread));
    }

    void joinAll() {
        std::vector<std::thread> taken;
        {
            std::lock_guard<std::mutex> lock(mutex);
            taken.swap(threads);
        }
        for (std::thread& thread : taken) {
            if (thread.get_id() == std::this_thread::get_id()) {
                adopt(std::move(thread));
            } else if (thread.joinable()) {
                thread.join();
            }
        }
    }

    ~SelfReleasedThreads() { joinAll(); }

private:
    std::mutex mutex;
    std::vector<std::thread> threads;
};

/// How long a caller waits for the runtime's thread to finish delivering the
/// event that its call causes: as long as a publisher or subscriber waits for
/// that event itself.
constexpr std::chrono::milliseconds deliveryWait{5000};

}  // namespace

std::shared_ptr<KrinDabo> KrinDabo::create(const orlo::dabo::Dabo::Properties& properties) {
    return std::shared_ptr<KrinDabo>(new KrinDabo(properties, std::make_shared<RuntimeSeam>()));
}

KrinDabo::KrinDabo(const orlo::dabo::Dabo::Properties& properties, std::shared_ptr<RuntimeSeam> seam)
    : properties(properties),
      runtime(std::make_shared<KrinRuntime>(std::move(seam), highWaterMarkOf(properties),
                                            KrinSocketOptions(properties), ThreadPlacement(properties))) {
    const auto metricsAddress = properties.find(metricsAddressProperty);
    if (metricsAddress != properties.end()) {
        // Bound before the runtime's thread starts, so that a bad address
        // fails creation with nothing to undo.
        metricsServer = std::make_unique<MetricsServer>(
            metricsAddress->second, [state = runtime] { return toPrometheusText(state->metrics().snapshot()); });
    }
    // Protocol Buffers' complaints about refused payloads go to the log too.
    routeProtobufLogging();
    std::promise<void> ready;
    std::future<void> started = ready.get_future();
    // The thread shares the runtime's state, so that it can finish on its own
    // when the last reference to this object is dropped on that very thread.
    {
        const HostSignalsHeldBack signalsHeldBack;
        thread = std::thread([state = runtime, &ready] { state->run(ready); });
    }
    try {
        started.get();
    } catch (...) {
        thread.join();
        throw;
    }
}

KrinDabo::~KrinDabo() {
    metricsServer.reset();
    runtime->requestStop();
    if (thread.get_id() == std::this_thread::get_id()) {
        // Released from inside an event: the thread cannot wait for itself.
        // It closes everything when the event returns, then ends, and is
        // joined later by another thread.
        SelfReleasedThreads::instance().adopt(std::move(thread));
    } else {
        thread.join();
        SelfReleasedThreads::instance().joinAll();
    }
}

std::unique_ptr<zmq::socket_t> KrinDabo::createDealer() {
    runtime->seam().called("createDealer", false);
    auto dealer = std::make_unique<zmq::socket_t>(runtime->context(), zmq::socket_type::dealer);
    dealer->set(zmq::sockopt::linger, 0);
    dealer->set(zmq::sockopt::sndhwm, runtime->highWaterMark());
    // Unique per process, so no two dealers of any runtime share a name.
    dealer->set(zmq::sockopt::routing_id, "krin-dealer-" + std::to_string(++dealerCount));
    dealer->connect(runtime->routerAddress());
    return dealer;
}

void KrinDabo::registerPublisher(const std::string& endpoint, const std::string& identity,
                                 std::weak_ptr<EventsHandler>& handler,
                                 const orlo::dabo::Dabo::Properties& /*properties*/) {
    runtime->seam().called("registerPublisher", isEmpty(handler));
    if (endpoint.rfind("tcp://", 0) != 0) {
        throw DaboException("Invalid endpoint '" + endpoint + "': not tcp://HOST:PORT");
    }
    // The runtime's thread binds the endpoint while the caller waits; a bind
    // that fails for a known cause fails this call at once, in words, instead
    // of leaving the publisher to wait for a REGISTERED that cannot come.
    auto bindFailure = std::make_shared<std::string>();
    const bool finished =
        post(RuntimeCommand{RuntimeCommand::Kind::RegisterPublisher, endpoint, identity, {}, nullptr, handler, nullptr,
                            bindFailure, {}},
             isImmediate(runtime->seam().deliveryOfRegistered()), runtime->seam().registerWaitsForRegistered());
    if (finished && !bindFailure->empty()) {
        throw DaboException(*bindFailure);
    }
}

void KrinDabo::unregisterPublisher(const std::string& endpoint, const std::string& identity,
                                   std::weak_ptr<EventsHandler>& handler) {
    runtime->seam().called("unregisterPublisher", isEmpty(handler));
    post(RuntimeCommand{RuntimeCommand::Kind::UnregisterPublisher, endpoint, identity, {}, nullptr, handler, nullptr, nullptr, {}},
         !isEmpty(handler) && isImmediate(runtime->seam().deliveryOfUnregistered()), false);
}

void KrinDabo::registerSubscriber(const std::string& uri, const std::string& topicIdFrame,
                                  std::weak_ptr<EventsHandler>& handler) {
    runtime->seam().called("registerSubscriber", isEmpty(handler));
    const KrinTopicAddress address = parseKrinUri(uri, false, true);
    post(RuntimeCommand{RuntimeCommand::Kind::RegisterSubscriber, address.tcpEndpoint(), {}, topicIdFrame, nullptr,
                        handler, nullptr, nullptr, uri},
         isImmediate(runtime->seam().deliveryOfRegistered()), runtime->seam().registerWaitsForRegistered());
}

void KrinDabo::unregisterSubscriber(std::shared_ptr<zmq::socket_t>& socket, std::weak_ptr<EventsHandler>& handler) {
    runtime->seam().called("unregisterSubscriber", isEmpty(handler));
    post(RuntimeCommand{RuntimeCommand::Kind::UnregisterSubscriber, {}, {}, {}, socket, handler, nullptr, nullptr, {}},
         !isEmpty(handler) && isImmediate(runtime->seam().deliveryOfUnregistered()), false);
}

KrinMetrics KrinDabo::metrics() const {
    return runtime->metrics().snapshot();
}

int KrinDabo::metricsPort() const {
    return metricsServer ? metricsServer->port() : 0;
}

bool KrinDabo::post(RuntimeCommand command, bool eventImmediate, bool waitEvenIfDelayed) {
    // A call whose event is delivered at once returns only when that delivery
    // has returned too, so that the runtime's thread holds no reference to the
    // caller's object any more: a host that drops the object right after the
    // call then destroys it on its own thread, never on the runtime's while
    // the host goes on (or ends). Not on the runtime's own thread, which
    // would wait for itself, and never longer than a caller waits for the
    // event anyway.
    const bool wait = (eventImmediate || waitEvenIfDelayed) && std::this_thread::get_id() != thread.get_id();
    std::future<void> done;
    if (wait) {
        command.registrationDone = std::make_shared<std::promise<void>>();
        done = command.registrationDone->get_future();
    }
    runtime->post(std::move(command));
    if (!wait) {
        return false;
    }
    if (waitEvenIfDelayed) {
        done.wait();
        return true;
    }
    return done.wait_for(deliveryWait) == std::future_status::ready;
}

}  // namespace orlo::dabo::krin::detail
