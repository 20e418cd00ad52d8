#include "tools/play/Recording.h"

#include <google/protobuf/dynamic_message.h>

#include <algorithm>
#include <iostream>
#include <memory>

#include "tools/common/CommandLine.h"
#include "tools/common/RecordedSchemas.h"

namespace lumo::play {

namespace {

std::string recordAt(const mcap::Location& where, const std::string& record) {
    return where.chunkOffset ? record + " in the chunk record" : record;
}

bool wanted(const std::vector<std::string>& topics, const std::string& name) {
    return topics.empty() || std::find(topics.begin(), topics.end(), name) != topics.end();
}

/// Ends a scan early.
struct StopScan {};

}  // namespace

Recording::Recording(const PlayOptions& options, const google::protobuf::FileDescriptor& wire) : options(options), reader(options.file) {
    check(wire);
}

void Recording::check(const google::protobuf::FileDescriptor& wire) {
    google::protobuf::DynamicMessageFactory factory;
    std::map<std::uint16_t, mcap::Schema> schemas;
    std::map<std::uint16_t, std::unique_ptr<google::protobuf::Message>> decoders;
    mcap::Visitor visitor;
    visitor.schema = [&](const mcap::Schema& schema, const mcap::Location&) { schemas[schema.id] = schema; };
    visitor.channel = [&](const mcap::Channel& channel, const mcap::Location& where) {
        const bool chosenByPath = options.topics.empty() || wanted(options.topics, channel.topic);
        std::string reason;
        std::string topic;
        if (channel.messageEncoding != tools::recordedEncoding) {
            reason = "channel " + channel.topic + " holds messages encoded as '" + channel.messageEncoding +
                     "', not " + tools::recordedEncoding;
        } else if (schemas.count(channel.schemaId) == 0) {
            reason = "channel " + channel.topic + " has no schema";
        } else {
            const auto& schema = schemas.at(channel.schemaId);
            topic = tools::topicOfRecordedSchema(wire, schema.name, schema.encoding, schema.data, reason);
        }
        if (topic.empty()) {
            if (chosenByPath) {
                throw mcap::FormatError(options.file, where.offset, recordAt(where, "channel record"), reason);
            }
            return;  // a channel nobody asked for need not be playable
        }
        if (chosenByPath || wanted(options.topics, topic)) {
            played[channel.id] = PlayedChannel{channel.id, channel.topic, topic, 0};
            decoders[channel.id].reset(factory.GetPrototype(wire.FindMessageTypeByName(topic))->New());
        }
    };
    visitor.message = [&](const mcap::Message& message, const mcap::Channel&, const mcap::Location& where) {
        const auto channel = played.find(message.channelId);
        if (channel == played.end()) {
            return;
        }
        if (!decoders.at(message.channelId)->ParseFromString(message.data)) {
            throw mcap::FormatError(options.file, where.offset, recordAt(where, "message record"),
                                    "the message of sequence " + std::to_string(message.sequence) + " on " +
                                        channel->second.path + " is not a valid " + channel->second.topic);
        }
        ++channel->second.messages;
    };
    const auto result = reader.scan(visitor, options.recover);
    if (result.unfinishedAt) {
        std::cerr << "krin-play: " << options.file << " was not closed: " << result.unfinishedReason
                  << " (offset " << *result.unfinishedAt << "); playing its " << result.chunks
                  << " complete chunks" << std::endl;
    }
    for (const auto& topic : options.topics) {
        const bool found = std::any_of(played.begin(), played.end(), [&](const auto& entry) {
            return entry.second.path == topic || entry.second.topic == topic;
        });
        if (!found) {
            throw tools::UsageError("no channel of " + options.file + " is or carries '" + topic + "'");
        }
    }
}

void Recording::forEachMessage(const std::function<bool(const mcap::Message&, const PlayedChannel&)>& take) {
    mcap::Visitor visitor;
    visitor.message = [&](const mcap::Message& message, const mcap::Channel&, const mcap::Location&) {
        const auto channel = played.find(message.channelId);
        if (channel != played.end() && !take(message, channel->second)) {
            throw StopScan{};
        }
    };
    try {
        reader.scan(visitor, options.recover);
    } catch (const StopScan&) {
    }
}

}  // namespace lumo::play
