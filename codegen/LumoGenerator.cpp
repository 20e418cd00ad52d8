#include "codegen/LumoGenerator.h"
#include "codegen/FieldTable.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <fstream>
#include <iomanip>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

namespace lumo::codegen {
namespace {

namespace pb = google::protobuf;

// ---------------------------------------------------------------------------
// The model: what the schema says, in the words the generated code uses.

enum class Kind { Scalar, Enum, Array, Nested, Sequence };

struct Field {
    Kind kind;
    std::string stem;       // accessor stem: wire name with its first letter upper-cased
    std::string param;      // value constructor parameter: the wire name
    std::string wire;       // accessor name of the generated message class
    std::string type;       // interface type of getter and setter
    std::string element;    // Enum: wire enum; Array: element; Nested/Sequence: topic of the element
    std::string view;       // Nested: member that holds the view of the sub-message
};

struct Topic {
    std::string name;
    std::string wireType;   // full name of the wire message, e.g. generated.krin.lumotypes.LumoMode
    std::uint32_t typeHash = 0;
    std::vector<Field> fields;
    bool viewable = false;  // occurs as a single sub-message, so its binding has a view form
};

struct Package {
    std::string protoName;    // e.g. Lumotypes.proto
    std::string base;         // e.g. Lumotypes
    std::string pbHeader;     // e.g. Lumotypes.pb.h
    std::string ns;           // interface namespace and header directory, e.g. lumotypes
    std::string wireNs;       // e.g. ::generated::krin::lumotypes
    std::string descriptorTable;
    std::string exportMacro;
    std::string exportHeader;
    std::string typeHashes;   // path of the table of type hashes
    std::vector<const pb::EnumDescriptor*> enums;
    std::vector<Topic> topics;
};

std::string upperFirst(std::string text) {
    if (!text.empty()) {
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    }
    return text;
}

std::string upperAll(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

// The accessor name protoc's C++ generator gives a field: lower case, with a
// trailing underscore where that would be a C++ keyword.
std::string wireAccessor(const pb::FieldDescriptor* field) {
    static const std::set<std::string> keywords = {
        "alignas", "alignof", "and", "and_eq", "asm", "auto", "bitand", "bitor", "bool", "break", "case",
        "catch", "char", "class", "compl", "const", "constexpr", "const_cast", "continue", "decltype",
        "default", "delete", "do", "double", "dynamic_cast", "else", "enum", "explicit", "export", "extern",
        "false", "float", "for", "friend", "goto", "if", "inline", "int", "long", "mutable", "namespace",
        "new", "noexcept", "not", "not_eq", "nullptr", "operator", "or", "or_eq", "private", "protected",
        "public", "register", "reinterpret_cast", "return", "short", "signed", "sizeof", "static",
        "static_assert", "static_cast", "struct", "switch", "template", "this", "thread_local", "throw",
        "true", "try", "typedef", "typeid", "typename", "union", "unsigned", "using", "virtual", "void",
        "volatile", "wchar_t", "while", "xor", "xor_eq"};
    std::string name = field->name();
    for (char& c : name) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return keywords.count(name) != 0 ? name + "_" : name;
}

// protoc's name for a file in its symbols: every character that is not a
// letter or digit becomes '_' and its hex code, so "Lumotypes.proto" gives
// "Lumotypes_2eproto".
std::string filenameIdentifier(const std::string& filename) {
    static const char digits[] = "0123456789abcdef";
    std::string result;
    for (char c : filename) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte)) {
            result += c;
        } else {
            result += '_';
            if (byte >= 16) {
                result += digits[byte >> 4];
            }
            result += digits[byte & 15];
        }
    }
    return result;
}

std::string lastComponent(const std::string& dotted) {
    const auto dot = dotted.rfind('.');
    return dot == std::string::npos ? dotted : dotted.substr(dot + 1);
}

std::string scoped(const std::string& dotted) {
    std::string result = "::";
    for (char c : dotted) {
        if (c == '.') {
            result += "::";
        } else {
            result += c;
        }
    }
    return result;
}

// `img_gp1_err` -> `img_gp1_view`: the last word of the field's name gives way to "view".
std::string viewMember(const std::string& name) {
    const auto underscore = name.rfind('_');
    return (underscore == std::string::npos ? name : name.substr(0, underscore)) + "_view";
}

bool scalarType(pb::FieldDescriptor::CppType type, std::string* result) {
    switch (type) {
        case pb::FieldDescriptor::CPPTYPE_BOOL: *result = "bool"; return true;
        case pb::FieldDescriptor::CPPTYPE_FLOAT: *result = "float"; return true;
        case pb::FieldDescriptor::CPPTYPE_DOUBLE: *result = "double"; return true;
        case pb::FieldDescriptor::CPPTYPE_INT32: *result = "std::int32_t"; return true;
        case pb::FieldDescriptor::CPPTYPE_UINT32: *result = "std::uint32_t"; return true;
        case pb::FieldDescriptor::CPPTYPE_INT64: *result = "std::int64_t"; return true;
        case pb::FieldDescriptor::CPPTYPE_UINT64: *result = "std::uint64_t"; return true;
        default: return false;
    }
}

bool describeField(const pb::FieldDescriptor* descriptor, const Package& package, Field* field,
                   std::string* error) {
    field->stem = upperFirst(descriptor->name());
    field->param = descriptor->name();
    field->wire = wireAccessor(descriptor);
    const bool repeated = descriptor->is_repeated();
    std::string scalar;
    if (descriptor->cpp_type() == pb::FieldDescriptor::CPPTYPE_MESSAGE) {
        if (descriptor->message_type()->file() != descriptor->file()) {
            *error = descriptor->full_name() + ": a nested topic must come from the same schema";
            return false;
        }
        field->element = descriptor->message_type()->name();
        const std::string topic = "::" + package.ns + "::" + field->element;
        if (repeated) {
            field->kind = Kind::Sequence;
            field->type = "std::vector<std::shared_ptr<" + topic + ">>";
        } else {
            field->kind = Kind::Nested;
            field->type = "std::shared_ptr<" + topic + ">";
            field->view = viewMember(descriptor->name());
        }
    } else if (descriptor->cpp_type() == pb::FieldDescriptor::CPPTYPE_ENUM && !repeated) {
        field->kind = Kind::Enum;
        field->type = "::" + package.ns + "::" + descriptor->enum_type()->name();
        field->element = scoped(descriptor->enum_type()->full_name());
    } else if (scalarType(descriptor->cpp_type(), &scalar)) {
        if (repeated) {
            field->kind = Kind::Array;
            field->element = scalar;
            field->type = "::orlo::dabo::shared_vector<const " + scalar + ">";
        } else {
            field->kind = Kind::Scalar;
            field->type = scalar;
        }
    } else {
        *error = descriptor->full_name() + ": field type not supported by the binding";
        return false;
    }
    return true;
}

// The type hashes were fixed when the interface package was first published
// and are shared with every other implementation of it, so they cannot be
// derived from the schema: they are kept in a table beside it, one
// "Topic 0xHASH" line per topic ('#' starts a comment). Every topic needs
// exactly one entry, and every entry a topic.
bool readTypeHashes(const std::string& path, std::map<std::string, std::uint32_t>* hashes, std::string* error) {
    std::ifstream in(path);
    if (!in) {
        *error = "cannot read the type hash table " + path;
        return false;
    }
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        line = line.substr(0, line.find('#'));
        std::istringstream words(line);
        std::string topic;
        std::string hash;
        std::string extra;
        if (!(words >> topic)) {
            continue;
        }
        const std::string where = path + ":" + std::to_string(number) + ": ";
        std::size_t end = 0;
        unsigned long value = 0;
        if (!(words >> hash) || (words >> extra) || hash.rfind("0x", 0) != 0 || hash.size() != 10) {
            *error = where + "expected 'Topic 0xHHHHHHHH' (eight hex digits), not '" + line + "'";
            return false;
        }
        try {
            value = std::stoul(hash.substr(2), &end, 16);
        } catch (const std::exception&) {
            end = 0;
        }
        if (end != 8) {
            *error = where + "'" + hash + "' is not eight hex digits";
            return false;
        }
        if (!hashes->emplace(topic, static_cast<std::uint32_t>(value)).second) {
            *error = where + "topic " + topic + " has a second type hash";
            return false;
        }
    }
    return true;
}

bool assignTypeHashes(Package* package, std::string* error) {
    if (package->typeHashes.empty()) {
        *error = "no type hash table: give its path as option type_hashes";
        return false;
    }
    std::map<std::string, std::uint32_t> hashes;
    if (!readTypeHashes(package->typeHashes, &hashes, error)) {
        return false;
    }
    for (Topic& topic : package->topics) {
        const auto found = hashes.find(topic.name);
        if (found == hashes.end()) {
            *error = "topic " + topic.name + " has no type hash; add the line '" +
                     topic.name + " 0xHHHHHHHH' with its published type hash to " + package->typeHashes;
            return false;
        }
        topic.typeHash = found->second;
        hashes.erase(found);
    }
    if (!hashes.empty()) {
        *error = package->typeHashes + ": " + hashes.begin()->first + " is not a topic of " + package->protoName +
                 "; remove its line or add the message to the schema";
        return false;
    }
    return true;
}

bool describePackage(const pb::FileDescriptor* file, const std::string& parameter, Package* package,
                     std::string* error) {
    std::vector<std::pair<std::string, std::string>> options;
    pb::compiler::ParseGeneratorParameter(parameter, &options);
    for (const auto& [key, value] : options) {
        if (key == "export_macro") {
            package->exportMacro = value;
        } else if (key == "export_header") {
            package->exportHeader = value;
        } else if (key == "type_hashes") {
            package->typeHashes = value;
        } else {
            *error = "unknown option: " + key;
            return false;
        }
    }
    if (file->package().empty()) {
        *error = file->name() + ": the schema needs a package";
        return false;
    }
    package->protoName = file->name();
    package->base = pb::compiler::StripProto(file->name());
    package->base = package->base.substr(package->base.rfind('/') + 1);
    package->pbHeader = pb::compiler::StripProto(file->name()) + ".pb.h";
    package->ns = lastComponent(file->package());
    package->wireNs = scoped(file->package());
    package->descriptorTable = "descriptor_table_" + filenameIdentifier(file->name());
    for (int i = 0; i < file->enum_type_count(); ++i) {
        package->enums.push_back(file->enum_type(i));
    }
    std::set<std::string> viewable;
    for (int i = 0; i < file->message_type_count(); ++i) {
        const pb::Descriptor* message = file->message_type(i);
        if (message->nested_type_count() != 0 || message->enum_type_count() != 0 ||
            message->oneof_decl_count() != 0) {
            *error = message->full_name() + ": nested types and oneofs are not supported by the binding";
            return false;
        }
        Topic topic;
        topic.name = message->name();
        topic.wireType = message->full_name();
        for (int j = 0; j < message->field_count(); ++j) {
            Field field;
            if (!describeField(message->field(j), *package, &field, error)) {
                return false;
            }
            if (field.kind == Kind::Nested) {
                viewable.insert(field.element);
            }
            topic.fields.push_back(std::move(field));
        }
        package->topics.push_back(std::move(topic));
    }
    for (Topic& topic : package->topics) {
        topic.viewable = viewable.count(topic.name) != 0;
    }
    return assignTypeHashes(package, error);
}

// ---------------------------------------------------------------------------
// Emitting files.

bool has(const Topic& topic, Kind kind) {
    return std::any_of(topic.fields.begin(), topic.fields.end(),
                       [kind](const Field& field) { return field.kind == kind; });
}

// Scalars and enumerations go by value, everything else by const reference.
std::string paramType(const Field& field) {
    return field.kind == Kind::Scalar || field.kind == Kind::Enum ? field.type : "const " + field.type + "&";
}

std::string banner(const Package& package) {
    return "// Generated by protoc-gen-lumo from " + package.protoName +
           ". Do not edit: change the schema or the generator.\n";
}

std::string hex(std::uint32_t value) {
    std::ostringstream out;
    out << "0x" << std::uppercase << std::hex << std::setw(8) << std::setfill('0') << value;
    return out.str();
}

std::string exportInclude(const Package& package) {
    return package.exportHeader.empty() ? "" : "#include \"" + package.exportHeader + "\"\n";
}

std::string exported(const Package& package) {
    return package.exportMacro.empty() ? "" : package.exportMacro + " ";
}

std::string enumsHeader(const Package& package) {
    std::ostringstream out;
    out << banner(package) << "#pragma once\n\n#include <cstdint>\n\nnamespace " << package.ns << " {\n";
    for (const pb::EnumDescriptor* e : package.enums) {
        out << "\n// Same names and numbers as the wire enumeration " << e->full_name()
            << "; the binding converts by a plain cast.\nenum " << e->name() << " : std::int32_t {\n";
        for (int i = 0; i < e->value_count(); ++i) {
            out << "    " << e->value(i)->name() << " = " << e->value(i)->number() << ",\n";
        }
        out << "};\n";
    }
    out << "\n}  // namespace " << package.ns << "\n";
    return out.str();
}

std::string topicsHeader(const Package& package) {
    std::ostringstream out;
    out << banner(package) << "#pragma once\n\n"
        << "// Calls X(Topic) for every topic of the package, in schema order.\n"
        << "#define " << upperAll(package.ns) << "_FOR_EACH_TOPIC(X)";
    for (const Topic& topic : package.topics) {
        out << " \\\n    X(" << topic.name << ")";
    }
    out << "\n\n// Calls X(Topic, TypeHash) for every topic, in schema order: the constant that\n"
        << "// names the topic's payload type in every message header.\n"
        << "#define " << upperAll(package.ns) << "_FOR_EACH_TYPE_HASH(X)";
    for (const Topic& topic : package.topics) {
        out << " \\\n    X(" << topic.name << ", " << hex(topic.typeHash) << "u)";
    }
    out << "\n";
    return out.str();
}

std::string topicHeader(const Package& package, const Topic& topic) {
    std::ostringstream out;
    out << banner(package) << "#pragma once\n\n#include <cstdint>\n#include <memory>\n";
    if (has(topic, Kind::Sequence)) {
        out << "#include <vector>\n";
    }
    out << "\n#include \"dabo/ps/DataEntity.h\"\n";
    if (has(topic, Kind::Array)) {
        out << "#include \"dabo/utility/shared_vector.h\"\n";
    }
    out << exportInclude(package) << "#include \"" << package.ns << "/Enums.h\"\n";
    std::set<std::string> nested;
    for (const Field& field : topic.fields) {
        if ((field.kind == Kind::Nested || field.kind == Kind::Sequence) && nested.insert(field.element).second) {
            out << "#include \"" << package.ns << "/" << field.element << ".h\"\n";
        }
    }
    out << "\nnamespace " << package.ns << " {\n\n"
        << "// Topic " << topic.name << " as hosts see it: accessors only, in field order.\n"
        << "class " << exported(package) << topic.name << " : public ::orlo::dabo::ps::DataEntity<" << topic.name
        << "> {\npublic:\n";
    for (const Field& field : topic.fields) {
        out << "    virtual " << field.type << " get" << field.stem << "() const = 0;\n"
            << "    virtual void set" << field.stem << "(" << paramType(field) << " value) = 0;\n";
        if (field.kind == Kind::Array) {
            out << "    virtual void swap" << field.stem << "(" << field.type << "& value) = 0;\n";
        }
    }
    out << "};\n\n}  // namespace " << package.ns << "\n";
    return out.str();
}

std::string umbrellaHeader(const Package& package) {
    std::ostringstream out;
    out << banner(package) << "#pragma once\n\n#include \"" << package.ns << "/Enums.h\"\n#include \"" << package.ns
        << "/Topics.h\"\n";
    for (const Topic& topic : package.topics) {
        out << "#include \"" << package.ns << "/" << topic.name << ".h\"\n";
    }
    return out.str();
}

std::string implHeader(const Package& package, const Topic& topic) {
    const std::string iface = "::" + package.ns + "::" + topic.name;
    const std::string impl = topic.name + "Impl";
    std::ostringstream out;
    out << banner(package) << "#pragma once\n\n#include <cstddef>\n#include <memory>\n#include <string>\n\n"
        << "#include \"dabo/krin/detail/ps/KrinDataEntity.h\"\n"
        << "#include \"" << package.ns << "/" << topic.name << ".h\"\n";
    std::set<std::string> nested;
    for (const Field& field : topic.fields) {
        if (field.kind == Kind::Nested && nested.insert(field.element).second) {
            out << "#include \"" << package.ns << "/krin/" << field.element << "Impl.h\"\n";
        }
    }
    out << "\nnamespace " << package.wireNs.substr(2) << " {\nclass " << topic.name << ";\n}\n\n"
        << "namespace " << package.ns << "::krin {\n\n"
        << "// Binding of topic " << topic.name << ": a facade over its wire message, which is the\n"
        << "// sample's only storage.\n"
        << "class " << impl << " : public virtual " << iface << ",\n"
        << "    public virtual ::orlo::dabo::krin::detail::ps::KrinDataEntity<" << iface << "> {\n"
        << "public:\n"
        << "    using Topic = " << iface << ";\n"
        << "    using WireMessage = " << package.wireNs << "::" << topic.name << ";\n\n"
        << "    " << impl << "();\n";
    if (!topic.fields.empty()) {
        out << "    " << (topic.fields.size() == 1 ? "explicit " : "") << impl << "(";
        for (std::size_t i = 0; i < topic.fields.size(); ++i) {
            out << (i == 0 ? "" : ", ") << paramType(topic.fields[i]) << " " << topic.fields[i].param;
        }
        out << ");\n";
    }
    if (topic.viewable) {
        out << "    // A view of a sub-message that the parent's message owns.\n"
            << "    explicit " << impl << "(WireMessage* view);\n";
    }
    out << "    " << impl << "(const " << impl << "&) = delete;\n"
        << "    " << impl << "& operator=(const " << impl << "&) = delete;\n"
        << "    ~" << impl << "() override;\n\n"
        << "    std::unique_ptr<" << iface << "> clone() const override;\n"
        << "    bool keyEquals(const " << iface << "& other) const override;\n"
        << "    std::unique_ptr<" << iface << "> cloneKey() const override;\n"
        << "    bool hasKey() const override;\n\n";
    for (const Field& field : topic.fields) {
        out << "    " << field.type << " get" << field.stem << "() const override;\n"
            << "    void set" << field.stem << "(" << paramType(field) << " value) override;\n";
        if (field.kind == Kind::Array) {
            out << "    void swap" << field.stem << "(" << field.type << "& value) override;\n";
        }
    }
    out << "\n    bool toByteArray(zmq::message_t& target) const override;\n"
        << "    bool toByteArray(std::string& target) const override;\n"
        << "    bool fromByteArray(const std::string& bytes) override;\n"
        << "    bool fromByteArray(const void* bytes, std::size_t size) override;\n"
        << "    void copy(const " << iface << "& source) override;\n\n"
        << "    WireMessage& wireMessage();\n"
        << "    const WireMessage& wireMessage() const;\n\n"
        << "private:\n"
        << "    std::shared_ptr<WireMessage> message;\n";
    for (const Field& field : topic.fields) {
        if (field.kind == Kind::Nested) {
            out << "    std::shared_ptr<" << field.element << "Impl> " << field.view << ";\n";
        }
    }
    out << "};\n\n}  // namespace " << package.ns << "::krin\n";
    return out.str();
}

std::string implUmbrellaHeader(const Package& package) {
    std::ostringstream out;
    out << banner(package) << "#pragma once\n\n";
    for (const Topic& topic : package.topics) {
        out << "#include \"" << package.ns << "/krin/" << topic.name << "Impl.h\"\n";
    }
    return out.str();
}

std::string getterBody(const Package& package, const Field& field) {
    switch (field.kind) {
        case Kind::Scalar: return "return message->" + field.wire + "();";
        case Kind::Enum: return "return static_cast<" + field.type + ">(message->" + field.wire + "());";
        case Kind::Array: return "return binding::createSharedVector(message->" + field.wire + "());";
        case Kind::Nested: return "return " + field.view + ";";
        case Kind::Sequence:
            return "return binding::createVector<::" + package.ns + "::" + field.element + ", " + field.element +
                   "Impl, " + package.wireNs + "::" + field.element + ">(message->" + field.wire + "());";
    }
    return "";
}

std::string setterBody(const Package& package, const Field& field) {
    switch (field.kind) {
        case Kind::Scalar: return "message->set_" + field.wire + "(value);";
        case Kind::Enum: return "message->set_" + field.wire + "(static_cast<" + field.element + ">(value));";
        case Kind::Array: return "binding::assignArray(*message->mutable_" + field.wire + "(), value);";
        case Kind::Nested: return field.view + "->copy(*value);";
        case Kind::Sequence:
            return "binding::assignEntitySequence<::" + package.ns + "::" + field.element + ", " + field.element +
                   "Impl, " + package.wireNs + "::" + field.element + ">(*message->mutable_" + field.wire +
                   "(), value);";
    }
    return "";
}

void implSource(std::ostringstream& out, const Package& package, const Topic& topic) {
    const std::string iface = "::" + package.ns + "::" + topic.name;
    const std::string impl = topic.name + "Impl";
    out << "\n// " << impl << "\n\n" << impl << "::" << impl << "()\n    : message(new WireMessage())";
    for (const Field& field : topic.fields) {
        if (field.kind == Kind::Nested) {
            out << ",\n      " << field.view << "(std::make_shared<" << field.element << "Impl>(message->mutable_"
                << field.wire << "()))";
        }
    }
    out << " {}\n\n";
    if (!topic.fields.empty()) {
        out << impl << "::" << impl << "(";
        for (std::size_t i = 0; i < topic.fields.size(); ++i) {
            out << (i == 0 ? "" : ", ") << paramType(topic.fields[i]) << " " << topic.fields[i].param;
        }
        out << ")\n    : " << impl << "() {\n";
        for (const Field& field : topic.fields) {
            out << "    " << impl << "::set" << field.stem << "(" << field.param << ");\n";
        }
        out << "}\n\n";
    }
    if (topic.viewable) {
        out << impl << "::" << impl << "(WireMessage* view)\n"
            << "    : message(view, binding::NoopDeleter<WireMessage*>()) {}\n\n";
    }
    out << impl << "::~" << impl << "() = default;\n\n"
        << "std::unique_ptr<" << iface << "> " << impl << "::clone() const {\n"
        << "    std::unique_ptr<" << iface << "> result = std::make_unique<" << impl << ">(";
    for (std::size_t i = 0; i < topic.fields.size(); ++i) {
        out << (i == 0 ? "" : ", ") << "get" << topic.fields[i].stem << "()";
    }
    out << ");\n    binding::copyTraceContext(*this, *result);\n    return result;\n}\n\n"
        << "bool " << impl << "::keyEquals(const " << iface << "&) const {\n    return false;\n}\n\n"
        << "std::unique_ptr<" << iface << "> " << impl << "::cloneKey() const {\n"
        << "    return std::make_unique<" << impl << ">();\n}\n\n"
        << "bool " << impl << "::hasKey() const {\n    return false;\n}\n";
    for (const Field& field : topic.fields) {
        out << "\n" << field.type << " " << impl << "::get" << field.stem << "() const {\n    "
            << getterBody(package, field) << "\n}\n\n"
            << "void " << impl << "::set" << field.stem << "(" << paramType(field) << " value) {\n    "
            << setterBody(package, field) << "\n}\n";
        if (field.kind == Kind::Array) {
            out << "\nvoid " << impl << "::swap" << field.stem << "(" << field.type << "& value) {\n"
                << "    set" << field.stem << "(value);\n}\n";
        }
    }
    out << "\nbool " << impl << "::toByteArray(zmq::message_t& target) const {\n"
        << "    return binding::serializeToMessage(*message, target);\n}\n\n"
        << "bool " << impl << "::toByteArray(std::string& target) const {\n"
        << "    return binding::serializeToString(*message, target);\n}\n\n"
        << "bool " << impl << "::fromByteArray(const std::string& bytes) {\n"
        << "    return binding::parseFromString(*message, bytes);\n}\n\n"
        << "bool " << impl << "::fromByteArray(const void* bytes, std::size_t size) {\n"
        << "    return binding::parseFromArray(*message, bytes, size);\n}\n\n"
        << "void " << impl << "::copy(const " << iface << "& source) {\n";
    for (const Field& field : topic.fields) {
        out << "    set" << field.stem << "(source.get" << field.stem << "());\n";
    }
    out << "    binding::copyTraceContext(source, *this);\n}\n\n"
        << impl << "::WireMessage& " << impl << "::wireMessage() {\n    return *message;\n}\n\n"
        << "const " << impl << "::WireMessage& " << impl << "::wireMessage() const {\n    return *message;\n}\n";
}

std::string implSources(const Package& package) {
    std::ostringstream out;
    out << banner(package) << "#include \"" << package.ns << "/krin/" << package.base << "Impl.h\"\n\n"
        << "#include \"" << package.pbHeader << "\"\n"
        << "#include \"dabo/krin/detail/binding/NoopDeleter.h\"\n"
        << "#include \"dabo/krin/detail/binding/assignArray.h\"\n"
        << "#include \"dabo/krin/detail/binding/assignEntitySequence.h\"\n"
        << "#include \"dabo/krin/detail/binding/copyTraceContext.h\"\n"
        << "#include \"dabo/krin/detail/binding/createSharedVector.h\"\n"
        << "#include \"dabo/krin/detail/binding/createVector.h\"\n"
        << "#include \"dabo/krin/detail/binding/messageBytes.h\"\n\n"
        << "namespace " << package.ns << "::krin {\n\n"
        << "namespace binding = ::orlo::dabo::krin::detail::binding;\n";
    for (const Topic& topic : package.topics) {
        implSource(out, package, topic);
    }
    out << "\n}  // namespace " << package.ns << "::krin\n";
    return out.str();
}

// protoc declares the getter of the descriptor table as a C++ function; hosts
// look it up by its plain name. This unit must not see the generated header,
// where the C++ declaration of the same name lives.
std::string descriptorExport(const Package& package) {
    std::ostringstream out;
    out << banner(package) << exportInclude(package)
        << "\nnamespace google::protobuf::internal {\nstruct DescriptorTable;\n}\n\n"
        << "extern const ::google::protobuf::internal::DescriptorTable " << package.descriptorTable << ";\n\n"
        << "extern \"C\" " << exported(package) << "const ::google::protobuf::internal::DescriptorTable* "
        << package.descriptorTable << "_getter() {\n    return &" << package.descriptorTable << ";\n}\n";
    return out.str();
}

// What a host needs of each topic, from the same topic list as the plug-in:
// names, the wire message, the type hash, the names of its four exported
// factories, and the dispatch from a topic's name to its type.
std::string hostTopicsHeader(const Package& package) {
    static const char* const kinds[][2] = {{"publisherFactory", "Publisher"},
                                           {"subscriberFactory", "Subscriber"},
                                           {"mrvSubscriberFactory", "MrvSubscriber"},
                                           {"dataEntityFactory", "DataEntity"}};
    const std::string ns = package.ns;
    std::ostringstream out;
    out << banner(package) << "#pragma once\n\n#include <cstdint>\n#include <string>\n#include <vector>\n\n"
        << "#include \"" << ns << "/" << package.base << ".h\"\n\n"
        << "namespace " << ns << "::host {\n\n"
        << "/// The schema as the message library knows it, and the exported function that\n"
        << "/// returns its descriptor table.\n"
        << "constexpr const char* schemaFile = \"" << package.protoName << "\";\n"
        << "constexpr const char* descriptorTableGetter = \"" << package.descriptorTable << "_getter\";\n\n"
        << "/// What is known of topic type `T` without loading the plug-in.\n"
        << "template <typename T>\nstruct TopicTraits;\n";
    for (const Topic& topic : package.topics) {
        out << "\ntemplate <>\nstruct TopicTraits<::" << ns << "::" << topic.name << "> {\n"
            << "    static constexpr const char* name = \"" << topic.name << "\";\n"
            << "    static constexpr const char* wireType = \"" << topic.wireType << "\";\n"
            << "    static constexpr std::uint32_t typeHash = " << hex(topic.typeHash) << "u;\n";
        for (const auto& kind : kinds) {
            out << "    static constexpr const char* " << kind[0] << " = \"generated_krin_" << kind[1] << "_" << ns
                << "_" << topic.name << "\";\n";
        }
        out << "};\n";
    }
    out << "\n/// Stands for topic type `T` in a generic lambda:\n"
        << "/// `[](auto tag) { using T = typename decltype(tag)::type; }`.\n"
        << "template <typename T>\nstruct TopicTag {\n    using type = T;\n};\n\n"
        << "/// The names of all topics, in schema order.\n"
        << "inline std::vector<std::string> topicNames() {\n    return {";
    for (std::size_t i = 0; i < package.topics.size(); ++i) {
        out << (i == 0 ? "" : ", ") << "\"" << package.topics[i].name << "\"";
    }
    out << "};\n}\n\n"
        << "/// Calls `visit(TopicTag<T>{})` for the topic type named `name`; false if there\n"
        << "/// is no such topic.\n"
        << "template <typename Visitor>\nbool withTopic(const std::string& name, Visitor&& visit) {\n";
    for (const Topic& topic : package.topics) {
        out << "    if (name == \"" << topic.name << "\") {\n        visit(TopicTag<::" << ns << "::" << topic.name
            << ">{});\n        return true;\n    }\n";
    }
    out << "    return false;\n}\n\n"
        << "/// Calls `visit(TopicTag<T>{})` for every topic type, in schema order.\n"
        << "template <typename Visitor>\nvoid forEachTopic(Visitor&& visit) {\n";
    for (const Topic& topic : package.topics) {
        out << "    visit(TopicTag<::" << ns << "::" << topic.name << ">{});\n";
    }
    out << "}\n\n}  // namespace " << ns << "::host\n";
    return out.str();
}

void write(pb::compiler::GeneratorContext* context, const std::string& name, const std::string& text) {
    std::unique_ptr<pb::io::ZeroCopyOutputStream> stream(context->Open(name));
    pb::io::CodedOutputStream coded(stream.get());
    coded.WriteRaw(text.data(), static_cast<int>(text.size()));
}

}  // namespace

bool LumoGenerator::Generate(const pb::FileDescriptor* file, const std::string& parameter,
                             pb::compiler::GeneratorContext* context, std::string* error) const {
    Package package;
    if (!describePackage(file, parameter, &package, error)) {
        return false;
    }
    const std::string dir = package.ns + "/";
    write(context, dir + "Enums.h", enumsHeader(package));
    write(context, dir + "Topics.h", topicsHeader(package));
    write(context, dir + "Fields.h", fieldTableHeader(*file, package.ns, banner(package)));
    write(context, dir + "host/Topics.h", hostTopicsHeader(package));
    for (const Topic& topic : package.topics) {
        write(context, dir + topic.name + ".h", topicHeader(package, topic));
        write(context, dir + "krin/" + topic.name + "Impl.h", implHeader(package, topic));
    }
    write(context, dir + package.base + ".h", umbrellaHeader(package));
    write(context, dir + "krin/" + package.base + "Impl.h", implUmbrellaHeader(package));
    write(context, dir + "krin/" + package.base + "Impl.cpp", implSources(package));
    write(context, dir + "krin/" + package.base + "DescriptorExport.cpp", descriptorExport(package));
    return true;
}

}  // namespace lumo::codegen
