#include "tools/demo/SampleMaker.h"

#include <google/protobuf/descriptor.h>

#include <functional>
#include <stdexcept>
#include <vector>

namespace lumo::demo {

namespace {

using google::protobuf::FieldDescriptor;

void fillField(google::protobuf::Message& message, const FieldDescriptor& field, unsigned seed) {
    const auto* reflection = message.GetReflection();
    const unsigned value = seed * 31u + static_cast<unsigned>(field.number());
    const int elements = field.is_repeated() ? 1 + static_cast<int>(value % 3) : 1;
    for (int i = 0; i < elements; ++i) {
        const unsigned v = value + static_cast<unsigned>(i) * 7u;
        switch (field.cpp_type()) {
            case FieldDescriptor::CPPTYPE_FLOAT: {
                const float f = static_cast<float>(v) * 0.125f + 0.5f;
                field.is_repeated() ? reflection->AddFloat(&message, &field, f)
                                    : reflection->SetFloat(&message, &field, f);
                break;
            }
            case FieldDescriptor::CPPTYPE_DOUBLE: {
                const double d = 1.7e9 + static_cast<double>(v) / 64.0;
                field.is_repeated() ? reflection->AddDouble(&message, &field, d)
                                    : reflection->SetDouble(&message, &field, d);
                break;
            }
            case FieldDescriptor::CPPTYPE_UINT32: {
                const auto u = static_cast<std::uint32_t>(v * 2654435761u);
                field.is_repeated() ? reflection->AddUInt32(&message, &field, u)
                                    : reflection->SetUInt32(&message, &field, u);
                break;
            }
            case FieldDescriptor::CPPTYPE_INT32: {
                const auto s = static_cast<std::int32_t>(v % 100000u) + 1;
                field.is_repeated() ? reflection->AddInt32(&message, &field, s)
                                    : reflection->SetInt32(&message, &field, s);
                break;
            }
            case FieldDescriptor::CPPTYPE_BOOL: {
                const bool b = v % 2 == 1;
                field.is_repeated() ? reflection->AddBool(&message, &field, b)
                                    : reflection->SetBool(&message, &field, b);
                break;
            }
            case FieldDescriptor::CPPTYPE_ENUM: {
                const auto* type = field.enum_type();
                // Never the first value, which the probe uses.
                const auto count = static_cast<unsigned>(type->value_count());
                const auto* e = type->value(count > 1 ? 1 + static_cast<int>(v % (count - 1)) : 0);
                field.is_repeated() ? reflection->AddEnum(&message, &field, e)
                                    : reflection->SetEnum(&message, &field, e);
                break;
            }
            case FieldDescriptor::CPPTYPE_MESSAGE: {
                auto* nested = field.is_repeated() ? reflection->AddMessage(&message, &field)
                                                   : reflection->MutableMessage(&message, &field);
                fillEveryField(*nested, v);
                break;
            }
            default:
                throw std::logic_error("the demo cannot fill field " + field.full_name() + " of its type");
        }
    }
}

}  // namespace

void fillEveryField(google::protobuf::Message& message, unsigned seed) {
    const auto* type = message.GetDescriptor();
    for (int i = 0; i < type->field_count(); ++i) {
        fillField(message, *type->field(i), seed);
    }
}

std::string sampleBytes(tools::Schema& schema, const std::string& topic, unsigned seed) {
    const auto* type = schema.find(topic);
    if (type == nullptr) {
        throw std::runtime_error("the schema has no message " + topic);
    }
    auto message = schema.newMessage(*type);
    // Seed 0 would give the zero-based values of no field in particular; keep
    // clear of the probe by starting at 1.
    fillEveryField(*message, seed + 1);
    return message->SerializeAsString();
}

std::string probeBytes(tools::Schema& schema, const std::string& topic) {
    const auto* type = schema.find(topic);
    if (type == nullptr) {
        throw std::runtime_error("the schema has no message " + topic);
    }
    auto message = schema.newMessage(*type);
    // Required fields present with their defaults, nested ones likewise.
    const std::function<void(google::protobuf::Message&)> setDefaults = [&](google::protobuf::Message& m) {
        const auto* d = m.GetDescriptor();
        const auto* r = m.GetReflection();
        for (int i = 0; i < d->field_count(); ++i) {
            const auto* field = d->field(i);
            if (!field->is_required()) {
                continue;
            }
            switch (field->cpp_type()) {
                case FieldDescriptor::CPPTYPE_FLOAT: r->SetFloat(&m, field, 0); break;
                case FieldDescriptor::CPPTYPE_DOUBLE: r->SetDouble(&m, field, 0); break;
                case FieldDescriptor::CPPTYPE_UINT32: r->SetUInt32(&m, field, 0); break;
                case FieldDescriptor::CPPTYPE_INT32: r->SetInt32(&m, field, 0); break;
                case FieldDescriptor::CPPTYPE_BOOL: r->SetBool(&m, field, false); break;
                case FieldDescriptor::CPPTYPE_ENUM: r->SetEnum(&m, field, field->enum_type()->value(0)); break;
                case FieldDescriptor::CPPTYPE_MESSAGE: setDefaults(*r->MutableMessage(&m, field)); break;
                default: break;
            }
        }
    };
    setDefaults(*message);
    return message->SerializeAsString();
}

}  // namespace lumo::demo
