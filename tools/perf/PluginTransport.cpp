// Both ends through the plug-in's exported factories, as a host uses them.
#include <cmath>
#include <thread>
#include <vector>

#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"
#include "lumotypes/FieldStablizationTopicIn.h"
#include "lumotypes/HokuTopicIn.h"
#include "lumotypes/host/Plugin.h"
#include "tools/perf/Transport.h"

namespace lumo::perf {

namespace {

using lumotypes::FieldStablizationTopicIn;
using lumotypes::HokuTopicIn;

orlo::dabo::shared_vector<const float> arrayOf(std::size_t bytes) {
    return orlo::dabo::shared_vector<const float>(std::vector<float>(bytes / sizeof(float), 0.5f));
}

/// The throughput and latency runs' samples: `size` bytes of coefficients,
/// the id in sample_id.
void fill(HokuTopicIn& sample, std::size_t size) {
    sample.setQuality(true);
    sample.setSim(false);
    sample.setTimestamp_utc(0.0);
    sample.setSample_id(0);
    sample.setCoefficients(arrayOf(size));
}

void stamp(HokuTopicIn& sample, const Stamp& stamp) { sample.setSample_id(stamp.id); }

Stamp stampOf(const HokuTopicIn& sample) { return {sample.getSample_id(), 0}; }

/// The loop run's samples, the field stabilisation loop's input: `size` bytes
/// of gp1_cent_err, the id in sample_id and the send time in timestamp_utc,
/// as seconds of the steady clock (a double holds them to a few nanoseconds
/// after a year of uptime).
void fill(FieldStablizationTopicIn& sample, std::size_t size) {
    sample.setQuality(true);
    sample.setSim(false);
    sample.setTimestamp_utc(0.0);
    sample.setSample_id(0);
    sample.setGp1_cent_err(arrayOf(size));
    sample.setGp1_az(0.0f);
    sample.setGp2_az(0.0f);
    sample.setGp3_az(0.0f);
    sample.setPds_az(0.0f);
    sample.setTel_north_angle(0.0f);
}

void stamp(FieldStablizationTopicIn& sample, const Stamp& stamp) {
    sample.setSample_id(stamp.id);
    sample.setTimestamp_utc(static_cast<double>(stamp.sentNanos) / 1e9);
}

Stamp stampOf(const FieldStablizationTopicIn& sample) {
    return {sample.getSample_id(), std::llround(sample.getTimestamp_utc() * 1e9)};
}

template <typename Topic>
class PluginSender : public Sender {
public:
    PluginSender(const PerfOptions& options, const Endpoints& endpoints, const std::string& uri)
        : publisher(endpoints.plugin->publisher<Topic>(uri, {}, endpoints.dabo)), joins(*endpoints.joins) {
        sample = publisher->createDataEntity();
        fill(*sample, options.size);
    }
    ~PluginSender() override { publisher->close(); }

    void send(const Stamp& given) override {
        stamp(*sample, given);
        publisher->publish(*sample, std::chrono::milliseconds(100));
    }
    bool awaitSubscribers(int count, std::chrono::milliseconds limit) override { return joins.await(count, limit); }

private:
    std::unique_ptr<orlo::dabo::ps::Publisher<Topic>> publisher;
    std::shared_ptr<Topic> sample;
    orlo::dabo::krin::probe::JoinWatch& joins;
};

template <typename Topic>
class PluginReceiver : public Receiver {
public:
    using Subscriber = orlo::dabo::ps::Subscriber<Topic>;

    PluginReceiver(const PerfOptions& options, const Endpoints& endpoints, const std::string& uri, OnSample onSample)
        : mode(options.readMode),
          subscriber(endpoints.plugin->subscriber<Topic>(uri, {}, endpoints.dabo)),
          onSample(std::move(onSample)) {}
    ~PluginReceiver() override { subscriber->close(); }

    void run(Stopper& stopper, const OnRunning& running) override {
        const orlo::dabo::ps::DataEventFilter<Topic> everything;
        if (mode == "listener") {
            // Taken on the runtime's thread as the sample arrives.
            auto subscription = subscriber->subscribeAsync(
                everything, [this](Subscriber&, const orlo::dabo::ps::DataEvent<Topic>& event) {
                    onSample(stampOf(*event.getData()));
                });
            running();
            stopper.wait();
        } else if (mode == "poll") {
            auto subscription =
                subscriber->subscribe(everything, [this](Subscriber&, const orlo::dabo::ps::DataEvent<Topic>& event) {
                    onSample(stampOf(*event.getData()));
                });
            running();
            while (!stopper.stopped()) {
                subscriber->poll(0, std::chrono::milliseconds(20));
            }
        } else if (mode == "notifier") {
            runNotified(everything, stopper, running);
        } else {
            running();
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
        const std::vector<std::shared_ptr<Topic>> samples = subscriber->read(0);
        for (const auto& sample : samples) {
            onSample(stampOf(*sample));
        }
        return !samples.empty();
    }

    /// The notifier only wakes this thread, which then reads what is queued.
    void runNotified(const orlo::dabo::ps::DataEventFilter<Topic>& filter, Stopper& stopper, const OnRunning& running) {
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
        running();
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
    if (options.test == "loop") {
        return std::make_unique<PluginSender<FieldStablizationTopicIn>>(options, endpoints, uri);
    }
    return std::make_unique<PluginSender<HokuTopicIn>>(options, endpoints, uri);
}

std::unique_ptr<Receiver> makePluginReceiver(const PerfOptions& options, const Endpoints& endpoints,
                                             const std::string& uri, OnSample onSample) {
    if (options.test == "loop") {
        return std::make_unique<PluginReceiver<FieldStablizationTopicIn>>(options, endpoints, uri, std::move(onSample));
    }
    return std::make_unique<PluginReceiver<HokuTopicIn>>(options, endpoints, uri, std::move(onSample));
}

}  // namespace lumo::perf
