#include "tools/common/Schema.h"

#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>

#include <sstream>

namespace lumo::tools {

Schema::Schema(const lumotypes::host::Plugin& plugin) : file(&plugin.schema()) {}

std::vector<std::string> Schema::messageNames() const {
    std::vector<std::string> names;
    for (int i = 0; i < file->message_type_count(); ++i) {
        names.push_back(file->message_type(i)->name());
    }
    return names;
}

const google::protobuf::Descriptor* Schema::find(const std::string& topic) const {
    return file->FindMessageTypeByName(topic);
}

std::unique_ptr<google::protobuf::Message> Schema::newMessage(const google::protobuf::Descriptor& type) {
    return std::unique_ptr<google::protobuf::Message>(factory.GetPrototype(&type)->New());
}

std::string toJson(const google::protobuf::Message& message) {
    google::protobuf::util::JsonPrintOptions options;
    options.preserve_proto_field_names = true;
    options.always_print_primitive_fields = true;
    std::string json;
    const auto status = google::protobuf::util::MessageToJsonString(message, &json, options);
    if (!status.ok()) {
        return "{\"error\":\"" + std::string(status.message()) + "\"}";
    }
    return json;
}

std::string toText(const google::protobuf::Message& message) {
    std::string text;
    google::protobuf::TextFormat::PrintToString(message, &text);
    return text;
}

bool fromJson(const std::string& json, google::protobuf::Message& message, std::string& reason) {
    message.Clear();
    const auto status = google::protobuf::util::JsonStringToMessage(json, &message);
    if (!status.ok()) {
        reason = std::string(status.message());
        // The library heads its text with the path of the field, empty at the top level.
        if (reason.rfind(": ", 0) == 0) {
            reason.erase(0, 2);
        }
        return false;
    }
    std::vector<std::string> missing;
    message.FindInitializationErrors(&missing);
    if (!missing.empty()) {
        reason = "required field " + missing.front() + " is missing";
        for (std::size_t i = 1; i < missing.size(); ++i) {
            reason += ", required field " + missing[i] + " is missing";
        }
        return false;
    }
    return true;
}

std::string differences(const google::protobuf::Message& expected, const google::protobuf::Message& actual) {
    std::string report;
    {
        google::protobuf::io::StringOutputStream output(&report);
        google::protobuf::util::MessageDifferencer::StreamReporter reporter(&output);
        google::protobuf::util::MessageDifferencer differencer;
        differencer.ReportDifferencesTo(&reporter);
        differencer.Compare(expected, actual);
    }
    return report;
}

}  // namespace lumo::tools
