#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "lumotypes/host/Factories.h"
#include "tools/perf/PerfOptions.h"

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

/// Sends samples of one topic; the sample carries `id` (sample_id, or the
/// first four payload bytes on the raw pipeline) and `size` array bytes.
class Sender {
public:
    virtual ~Sender() = default;
    virtual void send(std::uint32_t id) = 0;
};

/// Called with the id of every sample received, on whatever thread the read
/// mode delivers on.
using OnSample = std::function<void(std::uint32_t id)>;

/// Receives the samples of one topic.
class Receiver {
public:
    virtual ~Receiver() = default;
    /// Takes samples on the calling thread (read, poll, notifier) or lets the
    /// runtime's thread deliver them (listener, raw) until `stopper` is raised.
    virtual void run(Stopper& stopper) = 0;
};

/// The sending and receiving ends of one implementation over one runtime.
struct Endpoints {
    lumotypes::host::Runtime dabo;
    const lumotypes::host::Plugin* plugin = nullptr;
};

std::unique_ptr<Sender> makeSender(const PerfOptions& options, const Endpoints& endpoints, int port,
                                   const std::string& topic);
std::unique_ptr<Receiver> makeReceiver(const PerfOptions& options, const Endpoints& endpoints, int port,
                                       const std::string& topic, OnSample onSample);

std::unique_ptr<Sender> makePluginSender(const PerfOptions& options, const Endpoints& endpoints,
                                         const std::string& uri);
std::unique_ptr<Receiver> makePluginReceiver(const PerfOptions& options, const Endpoints& endpoints,
                                             const std::string& uri, OnSample onSample);
std::unique_ptr<Sender> makeRawSender(const PerfOptions& options, const Endpoints& endpoints, int port,
                                      const std::string& topic);
std::unique_ptr<Receiver> makeRawReceiver(const Endpoints& endpoints, const std::string& uri,
                                          const std::string& topic, OnSample onSample);

/// Bytes of the HokuTopicIn wire message that carries `arrayBytes` of
/// coefficients and the four scalar fields: the raw pipeline sends payloads
/// of exactly this size.
std::size_t wireSizeOf(std::size_t arrayBytes);

}  // namespace lumo::perf
