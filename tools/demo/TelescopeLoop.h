#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/demo/DemoContext.h"
#include "tools/demo/LatencyStats.h"
#include "tools/demo/Ledger.h"

namespace lumo::demo {

/// What the loop has done so far, for the progress lines.
struct LoopProgress {
    unsigned long sensorSamples = 0;
    unsigned long controllerCommands = 0;
    unsigned long monitorCommands = 0;
    unsigned long supervisorChanges = 0;
    std::string mode;
};

/// The field stabilisation loop: a sensor publishing FieldStablizationTopicIn
/// at a fixed rate; a controller, woken by the notifier of its queued
/// subscriber, that reads each sample and publishes a FieldStablizationTopicOut
/// command for it; a monitor receiving the commands through a listener and
/// timing the loop; a supervisor changing LumoMode and RefPos now and then
/// and watching them through most-recent-value subscribers.
class TelescopeLoop {
public:
    /// The topics the loop publishes and subscribes.
    static const std::vector<std::string>& topics();

    TelescopeLoop(const DemoContext& context, double sensorRate);
    ~TelescopeLoop();

    /// Makes the publishers and subscribers and waits until every subscriber
    /// has joined. Throws if one does not.
    void start();

    /// Runs the loop for `duration`, calling `progress` about once a second,
    /// then waits a bounded time for what is still on its way.
    void run(std::chrono::duration<double> duration, const std::function<void(const LoopProgress&)>& progress);

    const Ledger& sensorLedger() const;
    const Ledger& commandLedger() const;
    const Ledger& modeLedger() const;
    const Ledger& refPosLedger() const;
    const LatencyStats& loopLatency() const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts;
};

}  // namespace lumo::demo
