#include "Values.h"

#include <iomanip>
#include <sstream>

namespace lumotypes::python {

std::string typeName(py::handle value) {
    return py::str(py::type::handle_of(value).attr("__name__"));
}

void refuse(const FieldName& where, const std::string& expected, py::handle value) {
    throw py::type_error(where.text() + ": expected " + expected + ", got " + typeName(value));
}

void refuseRange(const FieldName& where, py::handle value, long double lowest, long double highest) {
    std::ostringstream text;
    text << where.text() << ": " << std::string(py::repr(value)) << " is out of range " << std::fixed
         << std::setprecision(0) << lowest << ".." << highest;
    throw py::value_error(text.str());
}

void refuseEnum(const FieldName& where, const char* enumName, py::handle value) {
    throw py::value_error(where.text() + ": " + std::string(py::repr(value)) + " is not a value of " + enumName);
}

py::handle numpyBoolType() {
    static py::handle type = py::object(py::module_::import("numpy").attr("bool_")).release();
    return type;
}

py::handle enumBaseType() {
    static py::handle type = py::object(py::module_::import("enum").attr("Enum")).release();
    return type;
}

}  // namespace lumotypes::python
