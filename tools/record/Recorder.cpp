#include "tools/record/Recorder.h"

#include <chrono>
#include <cstdio>
#include <iostream>
#include <map>

#include "dabo/DaboException.h"
#include "tools/common/CommandLine.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"
#include "lumotypes/host/Topics.h"
#include "lumotypes/host/WireTap.h"
#include "tools/common/RecordedSchemas.h"
#include "tools/common/SequenceGaps.h"
#include "tools/common/TopicUri.h"
#include "tools/mcap/Writer.h"

namespace lumo::record {

namespace {

using Clock = std::chrono::steady_clock;
using tools::UsageError;

/// The path of a topic URI, which names its channel in the file.
std::string pathOf(const std::string& uri) {
    const auto scheme = uri.find("://");
    const auto slash = uri.find('/', scheme == std::string::npos ? 0 : scheme + 3);
    return slash == std::string::npos ? "/" : uri.substr(slash);
}

/// A recorded URI and what the recorder has seen of it.
struct RecordedChannel {
    std::string uri;
    std::string topic;
    std::uint32_t typeHash = 0;
    std::uint16_t id = 0;
    tools::SequenceGaps sequence;
    unsigned long samples = 0;
    unsigned long gaps = 0;
    unsigned long missing = 0;
    unsigned long otherType = 0;
};

std::vector<RecordedChannel> checkedChannels(const RecordOptions& options) {
    std::vector<RecordedChannel> channels;
    for (const auto& wanted : options.topics) {
        RecordedChannel channel;
        const bool known = lumotypes::host::withTopic(wanted.topic, [&](auto tag) {
            channel.typeHash = lumotypes::host::TopicTraits<typename decltype(tag)::type>::typeHash;
        });
        if (!known) {
            throw UsageError("unknown topic '" + wanted.topic + "'; see --help for the topics");
        }
        try {
            channel.uri = tools::topicUri(wanted.uri, wanted.topic, false);
        } catch (const orlo::dabo::DaboException& refusal) {
            throw UsageError(refusal.what());
        }
        channel.topic = wanted.topic;
        channels.push_back(std::move(channel));
    }
    return channels;
}

void printProgress(double seconds, const std::vector<RecordedChannel>& channels, std::uint64_t bytes) {
    char head[64];
    std::snprintf(head, sizeof head, "krin-record: %.0f s", seconds);
    std::cerr << head;
    for (const auto& channel : channels) {
        std::cerr << "  " << pathOf(channel.uri) << " " << channel.samples;
        if (channel.gaps != 0) {
            std::cerr << " (gaps " << channel.gaps << ", missing " << channel.missing << ")";
        }
    }
    std::cerr << "  " << bytes << " bytes" << std::endl;
}

}  // namespace

int record(const RecordOptions& options, const std::atomic<bool>& interrupted) {
    auto channels = checkedChannels(options);
    try {
        tools::checkProperties(options.properties, "krin-record");
    } catch (const orlo::dabo::DaboException& refusal) {
        throw UsageError(refusal.what());
    }

    const lumotypes::host::Plugin plugin(options.plugin);
    mcap::WriterOptions writerOptions;
    writerOptions.library = "krin-record (lumotypes-krin)";
    writerOptions.compression = options.compression;
    writerOptions.chunkSize = options.chunkSize;
    mcap::Writer writer(options.output, writerOptions);
    std::map<std::string, std::uint16_t> schemaOfTopic;
    for (auto& channel : channels) {
        if (schemaOfTopic.count(channel.topic) == 0) {
            const auto& type = plugin.messageType(channel.topic);
            schemaOfTopic[channel.topic] =
                writer.addSchema(type.full_name(), tools::recordedEncoding, tools::fileDescriptorSetOf(type));
        }
        channel.id = writer.addChannel(schemaOfTopic[channel.topic], pathOf(channel.uri), tools::recordedEncoding,
                                       {{"uri", channel.uri}, {"topic", channel.topic}});
    }

    lumotypes::host::Runtime runtime;
    try {
        runtime = lumotypes::host::createRuntime(options.properties);
    } catch (const orlo::dabo::DaboException& refusal) {
        throw UsageError(refusal.what());
    }
    auto queue = std::make_shared<lumotypes::host::WireQueue>();
    std::vector<std::unique_ptr<lumotypes::host::WireTap>> taps;
    for (std::size_t i = 0; i < channels.size(); ++i) {
        const std::string uri = channels[i].uri;
        taps.push_back(lumotypes::host::WireTap::open(runtime, uri, queue, i, [uri](const std::string& reason) {
            std::cerr << "krin-record: dropped a message of " << uri << ": " << reason << std::endl;
        }));
    }
    std::cerr << "krin-record: recording " << channels.size() << " topic" << (channels.size() == 1 ? "" : "s")
              << " into " << options.output << std::endl;

    const auto start = Clock::now();
    const auto end = options.duration > 0 ? start + std::chrono::duration_cast<Clock::duration>(
                                                        std::chrono::duration<double>(options.duration))
                                          : Clock::time_point::max();
    auto nextProgress = start + std::chrono::seconds(1);
    auto chunkOpened = start;
    unsigned long taken = 0;
    lumotypes::host::WireSample sample;
    auto stop = [&] { return interrupted || Clock::now() >= end || (options.count != 0 && taken >= options.count); };
    while (!stop()) {
        if (queue->next(sample, std::chrono::milliseconds(100))) {
            auto& channel = channels[sample.source];
            if (sample.dataEntityTypeHash != channel.typeHash) {
                if (channel.otherType++ == 0) {
                    std::cerr << "krin-record: " << channel.uri << " carries samples of another type than "
                              << channel.topic << "; they are not recorded" << std::endl;
                }
                continue;
            }
            const auto step = channel.sequence.next(sample.sampleSequence);
            channel.gaps += step.gap ? 1 : 0;
            channel.missing += step.missing;
            ++channel.samples;
            ++taken;
            if (writer.pendingMessages() == 0) {
                chunkOpened = Clock::now();
            }
            const double publishNs = sample.sourceTimestamp > 0 ? sample.sourceTimestamp * 1e9 : 0;
            writer.write(mcap::Message{channel.id, sample.sampleSequence, sample.arrivalNs,
                                       static_cast<std::uint64_t>(publishNs), std::move(sample.payload)});
        }
        const auto now = Clock::now();
        // A recorder killed without warning loses at most the last second.
        if (writer.pendingMessages() != 0 && now - chunkOpened >= std::chrono::seconds(1)) {
            writer.flushChunk();
        }
        if (now >= nextProgress) {
            printProgress(std::chrono::duration<double>(now - start).count(), channels, writer.bytesWritten());
            nextProgress += std::chrono::seconds(1);
        }
    }
    for (auto& tap : taps) {
        tap->close();
    }
    writer.close();
    printProgress(std::chrono::duration<double>(Clock::now() - start).count(), channels, writer.bytesWritten());
    std::cerr << "krin-record: wrote " << taken << " sample" << (taken == 1 ? "" : "s") << " to " << options.output
              << std::endl;
    if (options.count != 0 && taken < options.count && !interrupted) {
        std::cerr << "krin-record: " << taken << " of " << options.count << " samples within " << options.duration
                  << " s" << std::endl;
        return tools::exitFailed;
    }
    return tools::exitOk;
}

}  // namespace lumo::record
