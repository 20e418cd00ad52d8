#include "tools/common/Schema.h"

#include <google/protobuf/struct.pb.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>

#include <sstream>

namespace lumo::tools {

namespace {

/// The first enumeration field of `type` in `value` (the JSON as the message
/// library reads any JSON) whose value is neither a name nor a number of its
/// enumeration, described with the names it takes; empty if there is none.
/// The library's own refusal of such a value does not name the field.
std::string enumerationRefusal(const google::protobuf::Descriptor& type, const google::protobuf::Value& value,
                               const std::string& path) {
    if (!value.has_struct_value()) {
        return "";
    }
    for (const auto& entry : value.struct_value().fields()) {
        const auto* field = type.FindFieldByName(entry.first);
        if (field == nullptr) {
            field = type.FindFieldByCamelcaseName(entry.first);
        }
        if (field == nullptr) {
            continue;
        }
        const std::string fieldPath = path.empty() ? field->name() : path + "." + field->name();
        std::vector<const google::protobuf::Value*> values;
        if (entry.second.has_list_value()) {
            for (const auto& element : entry.second.list_value().values()) {
                values.push_back(&element);
            }
        } else {
            values.push_back(&entry.second);
        }
        for (const auto* one : values) {
            if (field->type() == google::protobuf::FieldDescriptor::TYPE_MESSAGE) {
                const std::string inner = enumerationRefusal(*field->message_type(), *one, fieldPath);
                if (!inner.empty()) {
                    return inner;
                }
                continue;
            }
            if (field->type() != google::protobuf::FieldDescriptor::TYPE_ENUM) {
                continue;
            }
            const auto* enumeration = field->enum_type();
            std::string written;
            if (one->has_string_value()) {
                if (enumeration->FindValueByName(one->string_value()) != nullptr) {
                    continue;
                }
                written = "'" + one->string_value() + "'";
            } else if (one->has_number_value()) {
                const double number = one->number_value();
                if (number == static_cast<int>(number) &&
                    enumeration->FindValueByNumber(static_cast<int>(number)) != nullptr) {
                    continue;
                }
                std::ostringstream text;
                text << number;
                written = text.str();
            } else {
                continue;
            }
            std::string names;
            for (int i = 0; i < enumeration->value_count(); ++i) {
                names += (i == 0 ? "" : ", ") + enumeration->value(i)->name() + " (" +
                         std::to_string(enumeration->value(i)->number()) + ")";
            }
            return "field " + fieldPath + ": " + written + " is not a value of " + enumeration->name() +
                   ", which takes " + names;
        }
    }
    return "";
}

}  // namespace

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
    // The library also logs its refusal; the caller says it better, naming the field.
    google::protobuf::LogSilencer quiet;
    const auto status = google::protobuf::util::JsonStringToMessage(json, &message);
    if (!status.ok()) {
        google::protobuf::Value any;
        if (google::protobuf::util::JsonStringToMessage(json, &any).ok()) {
            reason = enumerationRefusal(*message.GetDescriptor(), any, "");
            if (!reason.empty()) {
                return false;
            }
        }
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
