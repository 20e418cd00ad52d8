// The raw pipeline: three frames of the plug-in's sizes through the same
// runtime, with nothing of the plug-in on either side. This is the physical
// limit of the design: the runtime's hops and events, without headers built
// or parsed, without entities, without the engine.
#include "dabo/krin/probe/RawPipeline.h"
#include "tools/perf/Transport.h"

namespace lumo::perf {

namespace {

using orlo::dabo::krin::probe::RawReceiver;
using orlo::dabo::krin::probe::RawSender;

class RawPipelineSender : public Sender {
public:
    RawPipelineSender(const PerfOptions& options, const Endpoints& endpoints, int port, const std::string& topic)
        : sender(endpoints.dabo, port, topic, wireSizeOf(options.size)), joins(*endpoints.joins) {}
    void send(const Stamp& stamp) override { sender.send(stamp.id); }
    bool awaitSubscribers(int count, std::chrono::milliseconds limit) override { return joins.await(count, limit); }

private:
    RawSender sender;
    orlo::dabo::krin::probe::JoinWatch& joins;
};

class RawPipelineReceiver : public Receiver {
public:
    RawPipelineReceiver(const Endpoints& endpoints, const std::string& uri, const std::string& topic, OnSample onSample)
        : receiver(endpoints.dabo, uri, topic, [onSample = std::move(onSample)](std::uint32_t id) {
              onSample({id, 0});
          }) {}
    // The runtime's thread delivers from construction on; this one only waits for the end.
    void run(Stopper& stopper, const OnRunning& running) override {
        running();
        stopper.wait();
    }

private:
    RawReceiver receiver;
};

}  // namespace

std::unique_ptr<Sender> makeRawSender(const PerfOptions& options, const Endpoints& endpoints, int port,
                                      const std::string& topic) {
    return std::make_unique<RawPipelineSender>(options, endpoints, port, topic);
}

std::unique_ptr<Receiver> makeRawReceiver(const Endpoints& endpoints, const std::string& uri, const std::string& topic,
                                          OnSample onSample) {
    return std::make_unique<RawPipelineReceiver>(endpoints, uri, topic, std::move(onSample));
}

}  // namespace lumo::perf
