#include "tools/common/RecordedSchemas.h"

#include <google/protobuf/descriptor.pb.h>

#include <set>
#include <vector>

#include "lumotypes/host/Topics.h"

namespace lumo::tools {

namespace {

void addWithImports(const google::protobuf::FileDescriptor& file, std::set<std::string>& added,
                    google::protobuf::FileDescriptorSet& set) {
    if (!added.insert(file.name()).second) {
        return;
    }
    for (int i = 0; i < file.dependency_count(); ++i) {
        addWithImports(*file.dependency(i), added, set);
    }
    file.CopyTo(set.add_file());
}

/// The first field of `ours` that `theirs` lacks or declares otherwise.
std::string fieldMismatch(const google::protobuf::Descriptor& ours, const google::protobuf::Descriptor& theirs) {
    for (int i = 0; i < ours.field_count(); ++i) {
        const auto* field = ours.field(i);
        const auto* other = theirs.FindFieldByNumber(field->number());
        if (other == nullptr) {
            return "it has no field " + std::to_string(field->number()) + " (" + field->name() + ")";
        }
        if (other->name() != field->name() || other->type() != field->type() || other->label() != field->label()) {
            return "its field " + std::to_string(field->number()) + " is '" + other->name() + "' of type " +
                   other->type_name() + ", not '" + field->name() + "' of type " + field->type_name();
        }
    }
    return "";
}

}  // namespace

std::string fileDescriptorSetOf(const google::protobuf::Descriptor& type) {
    google::protobuf::FileDescriptorSet set;
    std::set<std::string> added;
    addWithImports(*type.file(), added, set);
    return set.SerializeAsString();
}

std::string topicOfRecordedSchema(const google::protobuf::FileDescriptor& wire, const std::string& name, const std::string& encoding,
                                  const std::string& data, std::string& reason) {
    if (encoding != recordedEncoding) {
        reason = "schema '" + name + "' is encoded as '" + encoding + "', not " + recordedEncoding;
        return "";
    }
    std::string topic;
    lumotypes::host::forEachTopic([&](auto tag) {
        using Traits = lumotypes::host::TopicTraits<typename decltype(tag)::type>;
        if (name == Traits::wireType) {
            topic = Traits::name;
        }
    });
    const auto* ours = wire.FindMessageTypeByName(topic);
    if (topic.empty() || ours == nullptr) {
        reason = "schema '" + name + "' is not the type of any topic of " + wire.name();
        return "";
    }
    google::protobuf::FileDescriptorSet set;
    if (!set.ParseFromString(data)) {
        reason = "schema '" + name + "' does not hold a protobuf FileDescriptorSet";
        return "";
    }
    google::protobuf::DescriptorPool pool;
    for (const auto& file : set.file()) {
        if (pool.BuildFile(file) == nullptr) {
            reason = "schema '" + name + "' holds a descriptor of " + file.name() + " that does not build";
            return "";
        }
    }
    const auto* recorded = pool.FindMessageTypeByName(name);
    if (recorded == nullptr) {
        reason = "schema '" + name + "' holds descriptors that do not declare " + name;
        return "";
    }
    const std::string mismatch = fieldMismatch(*ours, *recorded);
    if (!mismatch.empty()) {
        reason = "schema '" + name + "' is not " + topic + " as this plug-in knows it: " + mismatch;
        return "";
    }
    return topic;
}

}  // namespace lumo::tools
