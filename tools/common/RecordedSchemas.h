#pragma once

// How a topic's type is stored in a recording and recognised again: one
// schema per topic, named by the message's full name, holding the
// FileDescriptorSet of the wire schema and its imports.

#include <google/protobuf/descriptor.h>

#include <string>


namespace lumo::tools {

/// The encoding of both the schemas and the messages of a recording.
constexpr const char* recordedEncoding = "protobuf";

/// The serialised FileDescriptorSet of the file that declares `type` and of
/// every file it imports, imports first.
std::string fileDescriptorSetOf(const google::protobuf::Descriptor& type);

/// The topic whose samples a recorded schema describes, or empty with the
/// reason in `reason`: the schema must be encoded as protobuf, be named as
/// one of the topics' wire types, and hold a descriptor set declaring that
/// message with the fields it has in `wire`, the plug-in's schema (numbers,
/// names and types).
std::string topicOfRecordedSchema(const google::protobuf::FileDescriptor& wire, const std::string& name, const std::string& encoding,
                                  const std::string& data, std::string& reason);

}  // namespace lumo::tools
