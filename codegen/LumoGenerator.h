#pragma once

#include <google/protobuf/compiler/code_generator.h>

#include <string>

namespace lumo::codegen {

/// Generates the per-topic C++ of an interface package from its schema: the
/// abstract topic classes and enumerations hosts program against, the topic
/// list, and the binding classes over the wire messages. Everything that does
/// not depend on a topic's fields lives in hand-written templates; this
/// generator only spells out names, types and the order of fields.
///
/// Options, given as `--lumo_opt=key=value,...`:
///   export_macro   macro that marks what hosts must see: the topic classes,
///                  whose type information host and plug-in share, and the
///                  descriptor getter (default: none)
///   export_header  header that defines it
class LumoGenerator : public google::protobuf::compiler::CodeGenerator {
public:
    bool Generate(const google::protobuf::FileDescriptor* file, const std::string& parameter,
                  google::protobuf::compiler::GeneratorContext* context,
                  std::string* error) const override;
};

}  // namespace lumo::codegen
