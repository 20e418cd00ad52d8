// Both ends through the plug-in's exported factories, as a host uses them.
#include <thread>
#include <vector>

#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"
#include "lumotypes/HokuTopicIn.h"
#include "lumotypes/host/Plugin.h"
#include "tools/perf/Transport.h"

namespace lumo::perf {

namespace {

using lumotypes::HokuTopicIn;
using Subscriber = orlo::dabo::ps::Subscriber<HokuTopicIn>;

class PluginSender : public Sender {
public:
    PluginSender(const PerfOptions& options, const Endpoints& endpoints, const std::string& uri)
        : publisher(endpoints.plugin->publisher<HokuTopicIn>(uri, {}, endpoints.dabo)), joins(*endpoints.joins) {
        sample = publisher->createDataEntity();
        sample->setQuality(true);
        sample->setSim(false);
        sample->setTimestamp_utc(0.0);
        sample->setSample_id(0);
        sample->setCoefficients(
            orlo::dabo::shared_vector<const float>(std::vector<float>(options.size / sizeof(float), 0.5f)));
    }
    ~PluginSender() override { publisher->close(); }

    void send(std::uint32_t id) override {
        sample->setSample_id(id);
        publisher->publish(*sample, std::chrono::milliseconds(100));
    }
    bool awaitSubscribers(int count, std::chrono::milliseconds limit) override { return joins.await(count, limit); }

private:
    std::unique_ptr<orlo::dabo::ps::Publisher<HokuTopicIn>> publisher;
    std::shared_ptr<HokuTopicIn> sample;
    orlo::dabo::krin::probe::JoinWatch& joins;
};

class PluginReceiver : public Receiver {
public:
    PluginReceiver(const PerfOptions& options, const Endpoints& endpoints, const std::string& uri, OnSample onSample)
        : mode(options.readMode),
          subscriber(endpoints.plugin->subscriber<HokuTopicIn>(uri, {}, endpoints.dabo)),
          onSample(std::move(onSample)) {}
    ~PluginReceiver() override { subscriber->close(); }

    void run(Stopper& stopper) override {
        const orlo::dabo::ps::DataEventFilter<HokuTopicIn> everything;
        if (mode == "listener") {
            // Taken on the runtime's thread as the sample arrives.
            auto subscription = subscriber->subscribeAsync(
                everything, [this](Subscriber&, const orlo::dabo::ps::DataEvent<HokuTopicIn>& event) {
                    onSample(event.getData()->getSample_id());
                });
            stopper.wait();
        } else if (mode == "poll") {
            auto subscription = subscriber->subscribe(
                everything, [this](Subscriber&, const orlo::dabo::ps::DataEvent<HokuTopicIn>& event) {
                    onSample(event.getData()->getSample_id());
                });
            while (!stopper.stopped()) {
                subscriber->poll(0, std::chrono::milliseconds(20));
            }
        } else if (mode == "notifier") {
            runNotified(everything, stopper);
        } else {
            // read never waits, so an empty queue is met by giving up the core.
            while (!stopper.stopped()) {
                if (!takeAll()) {
                    std::this_thread::yield();
                }
            }
        }
    }

private:
    bool takeAll() {
        const std::vector<std::shared_ptr<HokuTopicIn>> samples = subscriber->read(0);
        for (const auto& sample : samples) {
            onSample(sample->getSample_id());
        }
        return !samples.empty();
    }

    /// The notifier only wakes this thread, which then reads what is queued.
    void runNotified(const orlo::dabo::ps::DataEventFilter<HokuTopicIn>& filter, Stopper& stopper) {
        std::mutex mutex;
        std::condition_variable woken;
        bool pending = false;
        auto subscription = subscriber->subscribeAsync(filter, [&](Subscriber&) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                pending = true;
            }
            woken.notify_one();
        });
        while (!stopper.stopped()) {
            {
                std::unique_lock<std::mutex> lock(mutex);
                woken.wait_for(lock, std::chrono::milliseconds(20), [&] { return pending; });
                pending = false;
            }
            takeAll();
        }
        subscription.reset();
    }

    std::string mode;
    std::unique_ptr<Subscriber> subscriber;
    OnSample onSample;
};

}  // namespace

std::unique_ptr<Sender> makePluginSender(const PerfOptions& options, const Endpoints& endpoints,
                                         const std::string& uri) {
    return std::make_unique<PluginSender>(options, endpoints, uri);
}

std::unique_ptr<Receiver> makePluginReceiver(const PerfOptions& options, const Endpoints& endpoints,
                                             const std::string& uri, OnSample onSample) {
    return std::make_unique<PluginReceiver>(options, endpoints, uri, std::move(onSample));
}

}  // namespace lumo::perf
