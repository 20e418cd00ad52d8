#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

namespace lumo::bench {

/// Sets every field of `message` through reflection: scalars to a non-zero
/// value, each repeated float field to `arrayLength` elements, nested
/// messages filled the same way (two of each repeated one). The message is
/// then complete, as a publisher's sample is.
inline void fillMessage(google::protobuf::Message& message, int arrayLength) {
    using google::protobuf::FieldDescriptor;
    const auto* descriptor = message.GetDescriptor();
    const auto* reflection = message.GetReflection();
    for (int i = 0; i < descriptor->field_count(); ++i) {
        const FieldDescriptor* field = descriptor->field(i);
        if (field->is_repeated()) {
            const int count = field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE ? 2 : arrayLength;
            for (int k = 0; k < count; ++k) {
                switch (field->cpp_type()) {
                    case FieldDescriptor::CPPTYPE_FLOAT: reflection->AddFloat(&message, field, 0.25f * k); break;
                    case FieldDescriptor::CPPTYPE_DOUBLE: reflection->AddDouble(&message, field, 0.5 * k); break;
                    case FieldDescriptor::CPPTYPE_INT32: reflection->AddInt32(&message, field, k); break;
                    case FieldDescriptor::CPPTYPE_UINT32: reflection->AddUInt32(&message, field, k); break;
                    case FieldDescriptor::CPPTYPE_MESSAGE:
                        fillMessage(*reflection->AddMessage(&message, field), arrayLength);
                        break;
                    default: break;
                }
            }
            continue;
        }
        switch (field->cpp_type()) {
            case FieldDescriptor::CPPTYPE_BOOL: reflection->SetBool(&message, field, true); break;
            case FieldDescriptor::CPPTYPE_INT32: reflection->SetInt32(&message, field, 7); break;
            case FieldDescriptor::CPPTYPE_UINT32: reflection->SetUInt32(&message, field, 7); break;
            case FieldDescriptor::CPPTYPE_INT64: reflection->SetInt64(&message, field, 7); break;
            case FieldDescriptor::CPPTYPE_UINT64: reflection->SetUInt64(&message, field, 7); break;
            case FieldDescriptor::CPPTYPE_FLOAT: reflection->SetFloat(&message, field, 1.5f); break;
            case FieldDescriptor::CPPTYPE_DOUBLE: reflection->SetDouble(&message, field, 1.7e9); break;
            case FieldDescriptor::CPPTYPE_STRING: reflection->SetString(&message, field, "bench"); break;
            case FieldDescriptor::CPPTYPE_ENUM: {
                const auto* type = field->enum_type();
                reflection->SetEnumValue(&message, field, type->value(type->value_count() > 1 ? 1 : 0)->number());
                break;
            }
            case FieldDescriptor::CPPTYPE_MESSAGE:
                fillMessage(*reflection->MutableMessage(&message, field), arrayLength);
                break;
        }
    }
}

}  // namespace lumo::bench
