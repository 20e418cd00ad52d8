#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "dabo/krin/probe/JoinWatch.h"
#include "lumotypes/host/Factories.h"
#include "tools/perf/PerfOptions.h"
#include "tools/perf/Result.h"

namespace lumotypes::host {
class Plugin;
}

namespace lumo::perf {

/// A flag that one thread raises and others wait for.
class Stopper {
public:
    void stop() {
        {
            std::lock_guard<std::mutex> lock(mutex);
            raised = true;
        }
        changed.notify_all();
    }
    bool stopped() {
        std::lock_guard<std::mutex> lock(mutex);
        return raised;
    }
    void wait() {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return raised; });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool raised = false;
};

/// What a run reads off a sample: its id (sample_id, or the first four
/// payload bytes on the raw pipeline and bare ZeroMQ) and, on the loop run's
/// topic only, the publisher's steady-clock send time in nanoseconds (0 elsewhere).
struct Stamp {
    std::uint32_t id = 0;
    std::int64_t sentNanos = 0;
};

/// Sends samples of one topic; the sample carries `stamp` and `size` array bytes.
class Sender {
public:
    virtual ~Sender() = default;
    virtual void send(const Stamp& stamp) = 0;
    /// Waits until `count` subscribers have joined; false after `limit`.
    virtual bool awaitSubscribers(int count, std::chrono::milliseconds limit) = 0;
};

/// Called with the stamp of every sample received, on whatever thread the
/// read mode delivers on.
using OnSample = std::function<void(const Stamp& stamp)>;

/// Called once a receiver takes samples, before the first can be missed.
using OnRunning = std::function<void()>;

/// Receives the samples of one topic.
class Receiver {
public:
    virtual ~Receiver() = default;
    /// Takes samples on the calling thread (read, poll, notifier) or lets the
    /// runtime's thread deliver them (listener, raw) until `stopper` is raised;
    /// `running` is called as soon as no sample arriving can be missed.
    virtual void run(Stopper& stopper, const OnRunning& running) = 0;
};

/// The sending and receiving ends of one implementation over one runtime.
/// No runtime and no plug-in for the bare ZeroMQ floor.
struct Endpoints {
    lumotypes::host::Runtime dabo;
    const lumotypes::host::Plugin* plugin = nullptr;
    /// Tells when subscribers have joined the runtime's endpoints.
    orlo::dabo::krin::probe::JoinWatch* joins = nullptr;
};

/// How the receiving side takes samples, as results name it: the plug-in's
/// read mode, the runtime's events (raw) or the socket itself (zmq).
std::string readModeOf(const PerfOptions& options);

/// The fields every run's result begins with: which run, through what, read
/// how, in one process or two, and the array bytes per sample.
Result resultHead(const std::string& test, const PerfOptions& options);

/// What one measuring process sends and receives on: a runtime that tells
/// when subscribers join, and the plug-in if it is measured; nothing at all
/// for the bare ZeroMQ floor.
class ProcessEndpoints {
public:
    ProcessEndpoints(const PerfOptions& options, const lumotypes::host::Plugin* plugin);
    const Endpoints& get() const { return endpoints; }

private:
    std::optional<orlo::dabo::krin::probe::JoinWatch> joins;
    Endpoints endpoints;
};

std::unique_ptr<Sender> makeSender(const PerfOptions& options, const Endpoints& endpoints, int port,
                                   const std::string& topic);
std::unique_ptr<Receiver> makeReceiver(const PerfOptions& options, const Endpoints& endpoints, int port,
                                       const std::string& topic, OnSample onSample);

std::unique_ptr<Sender> makePluginSender(const PerfOptions& options, const Endpoints& endpoints,
                                         const std::string& uri);
std::unique_ptr<Receiver> makePluginReceiver(const PerfOptions& options, const Endpoints& endpoints,
                                             const std::string& uri, OnSample onSample);
std::unique_ptr<Sender> makeZmqSender(const PerfOptions& options, int port, const std::string& topic);
std::unique_ptr<Receiver> makeZmqReceiver(const PerfOptions& options, int port, const std::string& topic,
                                          OnSample onSample);
std::unique_ptr<Sender> makeRawSender(const PerfOptions& options, const Endpoints& endpoints, int port,
                                      const std::string& topic);
std::unique_ptr<Receiver> makeRawReceiver(const Endpoints& endpoints, const std::string& uri,
                                          const std::string& topic, OnSample onSample);

/// Bytes of the HokuTopicIn wire message that carries `arrayBytes` of
/// coefficients and the four scalar fields: the raw pipeline sends payloads
/// of exactly this size.
std::size_t wireSizeOf(std::size_t arrayBytes);

/// Bytes of the loop run's FieldStablizationTopicIn wire message that carries
/// `arrayBytes` of gp1_cent_err, its four scalar fields and its five floats.
std::size_t loopWireSizeOf(std::size_t arrayBytes);

}  // namespace lumo::perf
