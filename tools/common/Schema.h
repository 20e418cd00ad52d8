#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <vector>

#include "lumotypes/host/Plugin.h"

namespace lumo::tools {

/// The wire schema of the loaded plug-in, found through the descriptor table
/// it exports, and the conversions of a topic's payload to and from text.
/// Nothing here knows a topic: every field is reached through reflection.
class Schema {
public:
    /// The schema the plug-in exports (lumotypes::host::Plugin::schema).
    explicit Schema(const lumotypes::host::Plugin& plugin);

    Schema(const Schema&) = delete;
    Schema& operator=(const Schema&) = delete;

    /// The name the schema is known by, such as "Lumotypes.proto".
    const std::string& fileName() const { return file->name(); }

    /// The names of the schema's message types, in schema order.
    std::vector<std::string> messageNames() const;

    /// The payload type of `topic`, or null if the schema has no such message.
    const google::protobuf::Descriptor* find(const std::string& topic) const;

    /// An empty message of `type`.
    std::unique_ptr<google::protobuf::Message> newMessage(const google::protobuf::Descriptor& type);

private:
    const google::protobuf::FileDescriptor* file;
    google::protobuf::DynamicMessageFactory factory;
};

/// One line of JSON, field names as in the schema.
std::string toJson(const google::protobuf::Message& message);

/// The message library's text format, one field per line.
std::string toText(const google::protobuf::Message& message);

/// Parses `json` into `message`. On refusal returns false and says why in
/// `reason`, naming the field: a field the schema lacks, a value of the wrong
/// kind, or a required field left out.
bool fromJson(const std::string& json, google::protobuf::Message& message, std::string& reason);

/// The paths of the fields in which `expected` and `actual` differ, one per
/// line; empty if they are equal field by field.
std::string differences(const google::protobuf::Message& expected, const google::protobuf::Message& actual);

}  // namespace lumo::tools
