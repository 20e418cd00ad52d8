#include "codegen/FieldTable.h"

#include <cctype>
#include <sstream>

namespace lumo::codegen {
namespace {

namespace pb = google::protobuf;

// The accessor stem of a field: its wire name with the first letter upper-cased.
std::string stem(const std::string& name) {
    std::string result = name;
    if (!result.empty()) {
        result[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(result[0])));
    }
    return result;
}

void topicFields(std::ostringstream& out, const pb::Descriptor& message) {
    const std::string topic = message.name();
    out << "\ntemplate <>\nstruct Fields<" << topic << "> {\n"
        << "    static constexpr int count = " << message.field_count() << ";\n\n"
        << "    template <typename Visitor>\n    static void forEach(Visitor&& visitor) {\n";
    for (int i = 0; i < message.field_count(); ++i) {
        const std::string name = message.field(i)->name();
        out << "        visitor(\"" << name << "\", &" << topic << "::get" << stem(name) << ", &" << topic
            << "::set" << stem(name) << ");\n";
    }
    if (message.field_count() == 0) {
        out << "        static_cast<void>(visitor);\n";
    }
    out << "    }\n};\n";
}

void enumValues(std::ostringstream& out, const pb::EnumDescriptor& e) {
    out << "\ntemplate <>\nstruct EnumValues<" << e.name() << "> {\n"
        << "    static constexpr const char* name = \"" << e.name() << "\";\n\n"
        << "    template <typename Visitor>\n    static void forEach(Visitor&& visitor) {\n";
    for (int i = 0; i < e.value_count(); ++i) {
        out << "        visitor(\"" << e.value(i)->name() << "\", " << e.name() << "::" << e.value(i)->name()
            << ");\n";
    }
    out << "    }\n};\n";
}

std::string upperAll(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

}  // namespace

std::string fieldTableHeader(const pb::FileDescriptor& file, const std::string& ns, const std::string& banner) {
    std::ostringstream out;
    out << banner << "#pragma once\n\n#include \"" << ns << "/Enums.h\"\n";
    for (int i = 0; i < file.message_type_count(); ++i) {
        out << "#include \"" << ns << "/" << file.message_type(i)->name() << ".h\"\n";
    }
    out << "\nnamespace " << ns << " {\n\n"
        << "// Fields<Topic>::forEach(visitor) calls visitor(name, getter, setter) for\n"
        << "// every wire field of the topic, in schema order, with its wire name and\n"
        << "// the member functions of the topic class that read and write it.\n"
        << "template <typename Topic>\nstruct Fields;\n\n"
        << "// EnumValues<Enum>::forEach(visitor) calls visitor(name, value) for every\n"
        << "// value of the enumeration, in schema order.\n"
        << "template <typename Enum>\nstruct EnumValues;\n";
    for (int i = 0; i < file.message_type_count(); ++i) {
        topicFields(out, *file.message_type(i));
    }
    for (int i = 0; i < file.enum_type_count(); ++i) {
        enumValues(out, *file.enum_type(i));
    }
    out << "\n}  // namespace " << ns << "\n\n"
        << "// Calls X(Enum) for every enumeration of the package, in schema order.\n"
        << "#define " << upperAll(ns) << "_FOR_EACH_ENUM(X)";
    for (int i = 0; i < file.enum_type_count(); ++i) {
        out << " \\\n    X(" << file.enum_type(i)->name() << ")";
    }
    out << "\n";
    return out.str();
}

}  // namespace lumo::codegen
