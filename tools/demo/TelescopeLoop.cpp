#include "tools/demo/TelescopeLoop.h"

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <cmath>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "tools/demo/Joining.h"
#include "tools/demo/SampleMaker.h"

namespace lumo::demo {

namespace {

using FieldIn = lumotypes::FieldStablizationTopicIn;
using FieldOut = lumotypes::FieldStablizationTopicOut;
using FloatArray = orlo::dabo::shared_vector<const float>;
using Clock = std::chrono::steady_clock;

constexpr double pi = 3.14159265358979323846;

double nowUtc() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

log4cplus::Logger loopLogger() { return log4cplus::Logger::getInstance("lumo.demo.loop"); }

/// A pair of floats: x and y of a centroid, an error or a tip-tilt.
FloatArray pair(double x, double y) { return FloatArray{static_cast<float>(x), static_cast<float>(y)}; }

/// What the guide probes see at time `t`: the telescope's image wanders in a
/// slow circle with a faster wobble on top, and each probe sees it from its
/// own azimuth.
void fillSensorSample(FieldIn& sample, std::uint32_t sampleId, double t) {
    const double tipX = 0.30 * std::sin(2 * pi * 0.7 * t) + 0.05 * std::sin(2 * pi * 11.0 * t);
    const double tiltY = 0.25 * std::cos(2 * pi * 0.7 * t) + 0.04 * std::cos(2 * pi * 13.0 * t);
    const double azimuths[] = {0.0, 90.0, 180.0, 270.0};
    FloatArray cent[4];
    FloatArray position[4];
    for (int probe = 0; probe < 4; ++probe) {
        const double a = azimuths[probe] * pi / 180.0;
        const double offset = 0.01 * (probe + 1);
        cent[probe] = pair(tipX * std::cos(a) - tiltY * std::sin(a) + offset, tipX * std::sin(a) + tiltY * std::cos(a));
        position[probe] = pair(12.5 * std::cos(a) + 0.02 * tipX, 12.5 * std::sin(a) + 0.02 * tiltY);
    }
    sample.setQuality(true);
    sample.setSim(true);
    sample.setTimestamp_utc(nowUtc());
    sample.setSample_id(sampleId);
    sample.setGp1_cent_err(cent[0]);
    sample.setGp2_cent_err(cent[1]);
    sample.setGp3_cent_err(cent[2]);
    sample.setPds_cent_err(cent[3]);
    sample.setGp1_pos_error(position[0]);
    sample.setGp2_pos_error(position[1]);
    sample.setGp3_pos_error(position[2]);
    sample.setPds_pos_error(position[3]);
    sample.setGp1_az(static_cast<float>(azimuths[0]));
    sample.setGp2_az(static_cast<float>(azimuths[1]));
    sample.setGp3_az(static_cast<float>(azimuths[2]));
    sample.setPds_az(static_cast<float>(azimuths[3]));
    sample.setM5_tt_act(pair(-0.9 * tipX, -0.9 * tiltY));
    sample.setM4_tt_applied(pair(-0.1 * tipX, -0.1 * tiltY));
    sample.setTt_err_ins(pair(tipX, tiltY));
    sample.setTt_ref_ins(pair(0.0, 0.0));
    sample.setTel_north_angle(static_cast<float>(std::fmod(15.0 * t, 360.0)));
}

float mean(const FloatArray& values, std::size_t index) {
    return values.size() > index ? values[index] : 0.0f;
}

/// The controller's answer: a tip-tilt command against the mean of the four
/// probes' centroid errors, split between M5 (fast) and M4 (slow).
void fillCommand(FieldOut& command, const FieldIn& sample, std::uint32_t commandId) {
    constexpr float gain = 0.5f;
    const FloatArray* errors[] = {nullptr, nullptr, nullptr, nullptr};
    const FloatArray gp1 = sample.getGp1_cent_err();
    const FloatArray gp2 = sample.getGp2_cent_err();
    const FloatArray gp3 = sample.getGp3_cent_err();
    const FloatArray pds = sample.getPds_cent_err();
    errors[0] = &gp1;
    errors[1] = &gp2;
    errors[2] = &gp3;
    errors[3] = &pds;
    float x = 0;
    float y = 0;
    for (const auto* e : errors) {
        x += mean(*e, 0) / 4;
        y += mean(*e, 1) / 4;
    }
    command.setQuality(sample.getQuality());
    command.setSim(sample.getSim());
    command.setTimestamp_utc(nowUtc());
    command.setSample_id(commandId);
    command.setGp1_cmd(pair(-gain * mean(gp1, 0), -gain * mean(gp1, 1)));
    command.setGp2_cmd(pair(-gain * mean(gp2, 0), -gain * mean(gp2, 1)));
    command.setGp3_cmd(pair(-gain * mean(gp3, 0), -gain * mean(gp3, 1)));
    command.setU5_fs_tt(pair(-gain * 0.9f * x, -gain * 0.9f * y));
    command.setU5_fs_tt_in(sample.getM5_tt_act());
    command.setU4_fs_tt(pair(-gain * 0.1f * x, -gain * 0.1f * y));
    command.setU4_fs_tt_in(sample.getM4_tt_applied());
    command.setMs_fs_tt(pair(0, 0));
    command.setMs_fs_tt_in(pair(0, 0));
    command.setGp1_cent_err(gp1);
    command.setGp2_cent_err(gp2);
    command.setGp3_cent_err(gp3);
    command.setTt_err(pair(x, y));
    command.setSample_id_in(sample.getSample_id());
    command.setTimestamp_in_utc(sample.getTimestamp_utc());
    command.setSpare_channel_1(0);
    command.setSpare_channel_2(0);
    command.setSpare_channel_3(0);
    command.setSpare_channel_4(0);
    command.setSpare_channel_5(0);
    command.setSpare_channel_6(0);
}

/// The name of the value `number` of the enumeration of `field` in `topic`.
std::string enumName(tools::Schema& schema, const std::string& topic, const std::string& field, int number) {
    const auto* type = schema.find(topic);
    const auto* f = type == nullptr ? nullptr : type->FindFieldByName(field);
    const auto* value = f == nullptr || f->enum_type() == nullptr ? nullptr : f->enum_type()->FindValueByNumber(number);
    return value == nullptr ? std::to_string(number) : value->name();
}

/// Publishes `sample` and watches `watch` until it holds an equal sample,
/// publishing again every 200 ms while it does not (the first change also
/// finds out whether the subscriber has joined). Gives up after 5 s.
template <typename T>
void publishAndWatch(orlo::dabo::ps::Publisher<T>& publisher, orlo::dabo::ps::MrvSubscriber<T>& watch, Ledger& ledger,
                     std::uint64_t key, const T& sample) {
    const std::string bytes = lumotypes::host::toBytes(sample);
    ledger.sent(key, bytes);
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    auto nextPublish = Clock::now();
    while (Clock::now() < deadline) {
        if (Clock::now() >= nextPublish) {
            publisher.publish(sample, std::chrono::milliseconds(1000));
            nextPublish = Clock::now() + std::chrono::milliseconds(200);
        }
        for (const auto& held : watch.readMostRecent(std::chrono::milliseconds(10))) {
            if (lumotypes::host::toBytes(*held) == bytes) {
                ledger.received(key, bytes);
                return;
            }
        }
    }
}

}  // namespace

const std::vector<std::string>& TelescopeLoop::topics() {
    static const std::vector<std::string> names{lumotypes::host::TopicTraits<FieldIn>::name,
                                                lumotypes::host::TopicTraits<FieldOut>::name,
                                                lumotypes::host::TopicTraits<lumotypes::LumoMode>::name,
                                                lumotypes::host::TopicTraits<lumotypes::RefPos>::name};
    return names;
}

struct TelescopeLoop::Parts {
    Parts(const DemoContext& context, double rate)
        : context(context),
          rate(rate),
          sensorLedger("FieldStablizationTopicIn", context.schema),
          commandLedger("FieldStablizationTopicOut", context.schema),
          modeLedger("LumoMode", context.schema),
          refPosLedger("RefPos", context.schema) {}

    const DemoContext& context;
    double rate;
    Ledger sensorLedger;
    Ledger commandLedger;
    Ledger modeLedger;
    Ledger refPosLedger;
    LatencyStats latency;

    std::unique_ptr<orlo::dabo::ps::Publisher<FieldIn>> sensor;
    std::unique_ptr<orlo::dabo::ps::Subscriber<FieldIn>> controllerInput;
    std::unique_ptr<orlo::dabo::ps::Publisher<FieldOut>> controllerOutput;
    std::unique_ptr<orlo::dabo::ps::Subscriber<FieldOut>> monitor;
    std::unique_ptr<orlo::dabo::ps::Subscription> controllerWakeUp;
    std::unique_ptr<orlo::dabo::ps::Subscription> monitorListener;
    std::unique_ptr<orlo::dabo::ps::Publisher<lumotypes::LumoMode>> modePublisher;
    std::unique_ptr<orlo::dabo::ps::MrvSubscriber<lumotypes::LumoMode>> modeWatch;
    std::unique_ptr<orlo::dabo::ps::Publisher<lumotypes::RefPos>> refPosPublisher;
    std::unique_ptr<orlo::dabo::ps::MrvSubscriber<lumotypes::RefPos>> refPosWatch;

    std::atomic<unsigned long> sensorSamples{0};
    std::atomic<unsigned long> commands{0};
    std::atomic<unsigned long> monitored{0};
    std::atomic<unsigned long> changes{0};
    std::mutex modeMutex;
    std::string modeText = "-";

    // The controller's thread sleeps here until its notifier wakes it.
    std::mutex wakeMutex;
    std::condition_variable wake;
    bool pending = false;
    bool stopping = false;

    void runSensor(Clock::time_point end);
    void runController();
    void control(const FieldIn& sample, std::uint32_t& commandId);
    void runSupervisor(Clock::time_point end);
    void onCommand(const orlo::dabo::ps::DataEvent<FieldOut>& event);
};

void TelescopeLoop::Parts::runSensor(Clock::time_point end) {
    const auto period = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1.0 / rate));
    const auto start = Clock::now();
    auto due = start;
    std::uint32_t sampleId = 1;
    while (Clock::now() < end) {
        std::this_thread::sleep_until(due);
        auto sample = sensor->createDataEntity();
        fillSensorSample(*sample, sampleId, std::chrono::duration<double>(Clock::now() - start).count());
        sensorLedger.sent(sampleId, lumotypes::host::toBytes(*sample));
        sensor->publish(*sample, std::chrono::milliseconds(1000));
        ++sensorSamples;
        ++sampleId;
        due += period;
        // A sensor that fell far behind (a busy machine) resumes its rhythm
        // instead of bursting to catch up.
        if (Clock::now() - due > 50 * period) {
            due = Clock::now();
        }
    }
}

void TelescopeLoop::Parts::runController() {
    std::uint32_t commandId = 1;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(wakeMutex);
            wake.wait(lock, [&] { return pending || stopping; });
            if (!pending && stopping) {
                return;
            }
            pending = false;
        }
        // The notifier only said that something is queued: read all of it.
        for (auto samples = controllerInput->read(256); !samples.empty(); samples = controllerInput->read(256)) {
            for (const auto& sample : samples) {
                control(*sample, commandId);
            }
        }
    }
}

void TelescopeLoop::Parts::control(const FieldIn& sample, std::uint32_t& commandId) {
    const std::string bytes = lumotypes::host::toBytes(sample);
    if (sensorLedger.isProbe(bytes)) {
        return;
    }
    sensorLedger.received(sample.getSample_id(), bytes);
    auto command = controllerOutput->createDataEntity();
    fillCommand(*command, sample, commandId);
    commandLedger.sent(commandId, lumotypes::host::toBytes(*command));
    controllerOutput->publish(*command, std::chrono::milliseconds(1000));
    ++commandId;
    ++commands;
}

void TelescopeLoop::Parts::onCommand(const orlo::dabo::ps::DataEvent<FieldOut>& event) {
    if (!event.hasValidData()) {
        return;
    }
    const double arrival = nowUtc();
    const FieldOut& command = *event.getData();
    const std::string bytes = lumotypes::host::toBytes(command);
    if (commandLedger.isProbe(bytes)) {
        return;
    }
    commandLedger.received(command.getSample_id(), bytes);
    latency.add(arrival - command.getTimestamp_in_utc());
    ++monitored;
}

void TelescopeLoop::Parts::runSupervisor(Clock::time_point end) {
    static const lumotypes::CtrlMode modes[] = {lumotypes::TEL_DRIVEN_WITH_HOKU_TT, lumotypes::INS_DRIVEN_SEQUENTIAL,
                                                lumotypes::INS_DRIVEN_CASCADE, lumotypes::HIGH_ORDER_CASCADE,
                                                lumotypes::HIGH_ORDER_CASCADE_WITH_HOKU_TT, lumotypes::TEL_DRIVEN};
    static const lumotypes::Camera cameras[] = {lumotypes::IMG_PDS, lumotypes::IMG_GP1, lumotypes::IMG_GP2,
                                                lumotypes::IMG_GP3};
    std::uint64_t change = 0;
    do {
        auto mode = modePublisher->createDataEntity();
        mode->setControlMode(modes[change % 6]);
        mode->setActiveCameraFs(cameras[change % 4]);
        auto refPos = refPosPublisher->createDataEntity();
        refPos->setRefPosX(static_cast<std::uint32_t>(320 + 4 * change));
        refPos->setRefPosY(static_cast<std::uint32_t>(240 - 3 * change));
        refPos->setCentBoxWidth(16);
        refPos->setCentBoxHeight(16);
        publishAndWatch(*modePublisher, *modeWatch, modeLedger, change, *mode);
        publishAndWatch(*refPosPublisher, *refPosWatch, refPosLedger, change, *refPos);
        {
            std::lock_guard<std::mutex> lock(modeMutex);
            modeText = enumName(context.schema, "LumoMode", "controlMode", mode->getControlMode()) + "/" +
                       enumName(context.schema, "LumoMode", "activeCameraFs", mode->getActiveCameraFs()) +
                       " refPos (" + std::to_string(refPos->getRefPosX()) + "," +
                       std::to_string(refPos->getRefPosY()) + ")";
        }
        ++changes;
        ++change;
        // Now and then: twice a second, the last change a while before the end.
    } while (Clock::now() + std::chrono::milliseconds(500) < end &&
             (std::this_thread::sleep_for(std::chrono::milliseconds(500)), true));
}

TelescopeLoop::TelescopeLoop(const DemoContext& context, double sensorRate)
    : parts(std::make_unique<Parts>(context, sensorRate)) {}

TelescopeLoop::~TelescopeLoop() {
    // Callbacks first, so nothing calls into a part that is going.
    for (auto* subscription : {&parts->controllerWakeUp, &parts->monitorListener}) {
        if (*subscription) {
            (*subscription)->close();
            subscription->reset();
        }
    }
}

void TelescopeLoop::start() {
    auto& p = *parts;
    const auto& c = p.context;
    // Publishers first: the first binds the endpoint the subscribers connect to.
    p.sensor = c.plugin.publisher<FieldIn>(c.uriOf("FieldStablizationTopicIn"), c.properties, c.runtime);
    p.controllerOutput =
        c.plugin.publisher<FieldOut>(c.uriOf("FieldStablizationTopicOut"), c.properties, c.runtime);
    p.modePublisher = c.plugin.publisher<lumotypes::LumoMode>(c.uriOf("LumoMode"), c.properties, c.runtime);
    p.refPosPublisher = c.plugin.publisher<lumotypes::RefPos>(c.uriOf("RefPos"), c.properties, c.runtime);
    p.controllerInput =
        c.plugin.subscriber<FieldIn>(c.uriOf("FieldStablizationTopicIn"), c.properties, c.runtime);
    p.monitor = c.plugin.subscriber<FieldOut>(c.uriOf("FieldStablizationTopicOut"), c.properties, c.runtime);
    p.modeWatch = c.plugin.mrvSubscriber<lumotypes::LumoMode>(c.uriOf("LumoMode"), c.properties, c.runtime);
    p.refPosWatch = c.plugin.mrvSubscriber<lumotypes::RefPos>(c.uriOf("RefPos"), c.properties, c.runtime);

    p.sensorLedger.setProbe(probeBytes(c.schema, "FieldStablizationTopicIn"));
    p.commandLedger.setProbe(probeBytes(c.schema, "FieldStablizationTopicOut"));
    const auto limit = std::chrono::seconds(20);
    if (!awaitJoin(*p.sensor, *p.controllerInput, probeBytes(c.schema, "FieldStablizationTopicIn"), limit) ||
        !awaitJoin(*p.controllerOutput, *p.monitor, probeBytes(c.schema, "FieldStablizationTopicOut"), limit)) {
        throw std::runtime_error("the loop's subscribers did not join within 20 s");
    }

    const orlo::dabo::ps::DataEventFilter<FieldIn> anySample;
    // The notifier runs on the runtime's thread: it only wakes the controller,
    // which reads on its own thread.
    p.controllerWakeUp = p.controllerInput->subscribeAsync(anySample, [&p](orlo::dabo::ps::Subscriber<FieldIn>&) {
        {
            std::lock_guard<std::mutex> lock(p.wakeMutex);
            p.pending = true;
        }
        p.wake.notify_one();
    });
    const orlo::dabo::ps::DataEventFilter<FieldOut> anyCommand;
    p.monitorListener = p.monitor->subscribeAsync(
        anyCommand, [&p](orlo::dabo::ps::Subscriber<FieldOut>&, const orlo::dabo::ps::DataEvent<FieldOut>& event) {
            p.onCommand(event);
        });
}

void TelescopeLoop::run(std::chrono::duration<double> duration,
                        const std::function<void(const LoopProgress&)>& progress) {
    auto& p = *parts;
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(duration);
    const auto guarded = [](const char* who, auto body) {
        return [who, body] {
            try {
                body();
            } catch (const std::exception& failure) {
                LOG4CPLUS_ERROR(loopLogger(), who << " stopped: " << failure.what());
            }
        };
    };
    std::thread controller(guarded("controller", [&p] { p.runController(); }));
    std::thread sensor(guarded("sensor", [&p, end] { p.runSensor(end); }));
    std::thread supervisor(guarded("supervisor", [&p, end] { p.runSupervisor(end); }));

    const auto report = [&] {
        LoopProgress now;
        now.sensorSamples = p.sensorSamples;
        now.controllerCommands = p.commands;
        now.monitorCommands = p.monitored;
        now.supervisorChanges = p.changes;
        std::lock_guard<std::mutex> lock(p.modeMutex);
        now.mode = p.modeText;
        return now;
    };
    for (auto next = Clock::now() + std::chrono::seconds(1); next < end; next += std::chrono::seconds(1)) {
        std::this_thread::sleep_until(next);
        progress(report());
    }
    sensor.join();
    // What is on its way gets a generous, bounded time to arrive.
    p.sensorLedger.awaitAll(std::chrono::seconds(10));
    {
        std::lock_guard<std::mutex> lock(p.wakeMutex);
        p.stopping = true;
    }
    p.wake.notify_one();
    // Once the controller is done, its last command has been sent.
    controller.join();
    p.commandLedger.awaitAll(std::chrono::seconds(10));
    supervisor.join();
    progress(report());
}

const Ledger& TelescopeLoop::sensorLedger() const { return parts->sensorLedger; }
const Ledger& TelescopeLoop::commandLedger() const { return parts->commandLedger; }
const Ledger& TelescopeLoop::modeLedger() const { return parts->modeLedger; }
const Ledger& TelescopeLoop::refPosLedger() const { return parts->refPosLedger; }
const LatencyStats& TelescopeLoop::loopLatency() const { return parts->latency; }

}  // namespace lumo::demo
