#include "tools/scope/FieldCatalog.h"

#include <cassert>

namespace lumo::scope {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

const char* kindOf(const FieldDescriptor& field) {
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
        case FieldDescriptor::CPPTYPE_INT64:
        case FieldDescriptor::CPPTYPE_UINT32:
        case FieldDescriptor::CPPTYPE_UINT64:
        case FieldDescriptor::CPPTYPE_DOUBLE:
        case FieldDescriptor::CPPTYPE_FLOAT:
            return "number";
        case FieldDescriptor::CPPTYPE_BOOL:
            return "bool";
        case FieldDescriptor::CPPTYPE_ENUM:
            return "enum";
        default:
            return nullptr;
    }
}

void walk(const Descriptor& type, std::vector<const FieldDescriptor*>& steps, const std::string& prefix,
          bool repeatedOnTheWay, std::vector<PlotField>& fields) {
    for (int i = 0; i < type.field_count(); ++i) {
        const FieldDescriptor* field = type.field(i);
        const std::string path = prefix + field->name() + (field->is_repeated() ? "[]" : "");
        const bool array = repeatedOnTheWay || field->is_repeated();
        steps.push_back(field);
        if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
            walk(*field->message_type(), steps, path + ".", array, fields);
        } else if (const char* kind = kindOf(*field)) {
            PlotField plotted;
            plotted.path = path;
            plotted.array = array;
            plotted.kind = kind;
            plotted.steps = steps;
            if (field->cpp_type() == FieldDescriptor::CPPTYPE_ENUM) {
                const auto* values = field->enum_type();
                for (int v = 0; v < values->value_count(); ++v) {
                    plotted.enumNames.emplace(values->value(v)->number(), values->value(v)->name());
                }
            }
            fields.push_back(std::move(plotted));
        }
        steps.pop_back();
    }
}

double leafValue(const Message& message, const FieldDescriptor& field) {
    const Reflection& reflection = *message.GetReflection();
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            return reflection.GetInt32(message, &field);
        case FieldDescriptor::CPPTYPE_INT64:
            return static_cast<double>(reflection.GetInt64(message, &field));
        case FieldDescriptor::CPPTYPE_UINT32:
            return reflection.GetUInt32(message, &field);
        case FieldDescriptor::CPPTYPE_UINT64:
            return static_cast<double>(reflection.GetUInt64(message, &field));
        case FieldDescriptor::CPPTYPE_DOUBLE:
            return reflection.GetDouble(message, &field);
        case FieldDescriptor::CPPTYPE_FLOAT:
            return reflection.GetFloat(message, &field);
        case FieldDescriptor::CPPTYPE_BOOL:
            return reflection.GetBool(message, &field) ? 1 : 0;
        case FieldDescriptor::CPPTYPE_ENUM:
            return reflection.GetEnumValue(message, &field);
        default:
            assert(false && "only plottable fields are catalogued");
            return 0;
    }
}

double repeatedLeafValue(const Message& message, const FieldDescriptor& field, int index) {
    const Reflection& reflection = *message.GetReflection();
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            return reflection.GetRepeatedInt32(message, &field, index);
        case FieldDescriptor::CPPTYPE_INT64:
            return static_cast<double>(reflection.GetRepeatedInt64(message, &field, index));
        case FieldDescriptor::CPPTYPE_UINT32:
            return reflection.GetRepeatedUInt32(message, &field, index);
        case FieldDescriptor::CPPTYPE_UINT64:
            return static_cast<double>(reflection.GetRepeatedUInt64(message, &field, index));
        case FieldDescriptor::CPPTYPE_DOUBLE:
            return reflection.GetRepeatedDouble(message, &field, index);
        case FieldDescriptor::CPPTYPE_FLOAT:
            return reflection.GetRepeatedFloat(message, &field, index);
        case FieldDescriptor::CPPTYPE_BOOL:
            return reflection.GetRepeatedBool(message, &field, index) ? 1 : 0;
        case FieldDescriptor::CPPTYPE_ENUM:
            return reflection.GetRepeatedEnumValue(message, &field, index);
        default:
            assert(false && "only plottable fields are catalogued");
            return 0;
    }
}

void collect(const Message& message, const PlotField& field, std::size_t step, std::vector<double>& values) {
    const FieldDescriptor& at = *field.steps[step];
    const Reflection& reflection = *message.GetReflection();
    const bool leaf = step + 1 == field.steps.size();
    if (!at.is_repeated()) {
        if (leaf) {
            values.push_back(leafValue(message, at));
        } else {
            collect(reflection.GetMessage(message, &at), field, step + 1, values);
        }
        return;
    }
    const int size = reflection.FieldSize(message, &at);
    for (int i = 0; i < size; ++i) {
        if (leaf) {
            values.push_back(repeatedLeafValue(message, at, i));
        } else {
            collect(reflection.GetRepeatedMessage(message, &at, i), field, step + 1, values);
        }
    }
}

}  // namespace

std::vector<PlotField> plotFieldsOf(const Descriptor& type) {
    std::vector<PlotField> fields;
    std::vector<const FieldDescriptor*> steps;
    walk(type, steps, "", false, fields);
    return fields;
}

double scalarValue(const Message& message, const PlotField& field) {
    assert(!field.array);
    const Message* at = &message;
    for (std::size_t i = 0; i + 1 < field.steps.size(); ++i) {
        at = &at->GetReflection()->GetMessage(*at, field.steps[i]);
    }
    return leafValue(*at, *field.steps.back());
}

void arrayValues(const Message& message, const PlotField& field, std::vector<double>& values) {
    values.clear();
    collect(message, field, 0, values);
}

}  // namespace lumo::scope
