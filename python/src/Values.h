#pragma once

// Conversions between field values and Python objects, chosen by the type of
// the topic class's getter: scalars, enumerations (Python IntEnum classes),
// arrays (NumPy views) and nested topics. Every refusal names the field.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "Sample.h"
#include "dabo/utility/shared_vector.h"
#include "lumotypes/Fields.h"

namespace lumotypes::python {

namespace py = pybind11;

/// "Topic.field", the name every error about a value carries.
struct FieldName {
    const char* topic;
    const char* field;
    std::string text() const { return std::string(topic) + "." + field; }
};

std::string typeName(py::handle value);

/// Topic classes: plug-in entities of `T` from a Python value (a sample of
/// the class or a mapping of field names) and back.
template <typename T>
std::shared_ptr<T> entityFrom(py::handle value, const FieldName& where);
template <typename T>
py::object sampleObject(std::shared_ptr<T> entity);

// ---------------------------------------------------------------------------
// Enumerations: one IntEnum class per enumeration, made once from its values.

template <typename E>
struct EnumClass {
    static py::handle type;                       // the IntEnum class
    static std::map<std::int32_t, PyObject*>* members;

    static void make(py::module_& module) {
        py::list values;
        auto* byValue = new std::map<std::int32_t, PyObject*>();
        EnumValues<E>::forEach([&](const char* name, E value) {
            values.append(py::make_tuple(name, static_cast<std::int32_t>(value)));
        });
        py::object cls = py::module_::import("enum").attr("IntEnum")(EnumValues<E>::name, values,
                                                                        py::arg("module") = module.attr("__name__"));
        EnumValues<E>::forEach([&](const char*, E value) {
            (*byValue)[static_cast<std::int32_t>(value)] = cls(static_cast<std::int32_t>(value)).release().ptr();
        });
        module.attr(EnumValues<E>::name) = cls;
        type = cls.release();
        members = byValue;
    }
};
template <typename E>
py::handle EnumClass<E>::type;
template <typename E>
std::map<std::int32_t, PyObject*>* EnumClass<E>::members = nullptr;

// ---------------------------------------------------------------------------
// From Python to a field's value.

[[noreturn]] void refuse(const FieldName& where, const std::string& expected, py::handle value);
[[noreturn]] void refuseRange(const FieldName& where, py::handle value, long double lowest, long double highest);
[[noreturn]] void refuseEnum(const FieldName& where, const char* enumName, py::handle value);

/// Python classes the conversions test against, looked up once.
py::handle numpyBoolType();
py::handle enumBaseType();

template <typename V, typename = void>
struct Value;

template <>
struct Value<bool> {
    static bool from(py::handle value, const FieldName& where) {
        if (PyBool_Check(value.ptr()) || py::isinstance(value, numpyBoolType())) {
            return PyObject_IsTrue(value.ptr()) == 1;
        }
        refuse(where, "a bool", value);
    }
    static py::object to(bool value, py::handle) { return py::bool_(value); }
};

template <typename V>
struct Value<V, std::enable_if_t<std::is_floating_point_v<V>>> {
    static V from(py::handle value, const FieldName& where) {
        if (PyFloat_Check(value.ptr())) {
            return static_cast<V>(PyFloat_AS_DOUBLE(value.ptr()));
        }
        if (PyUnicode_Check(value.ptr()) || PyBytes_Check(value.ptr())) {
            refuse(where, "a number", value);
        }
        const double result = PyFloat_AsDouble(value.ptr());
        if (result == -1.0 && PyErr_Occurred()) {
            PyErr_Clear();
            refuse(where, "a number", value);
        }
        return static_cast<V>(result);
    }
    static py::object to(V value, py::handle) { return py::float_(static_cast<double>(value)); }
};



template <typename V>
struct Value<V, std::enable_if_t<std::is_integral_v<V> && !std::is_same_v<V, bool>>> {
    static V from(py::handle value, const FieldName& where) {
        if (PyBool_Check(value.ptr()) || !PyIndex_Check(value.ptr())) {
            refuse(where, "an integer", value);
        }
        py::object index = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
        if constexpr (std::is_same_v<V, std::uint64_t>) {
            const unsigned long long number = PyLong_AsUnsignedLongLong(index.ptr());
            if (PyErr_Occurred()) {
                PyErr_Clear();
                refuseRange(where, value, 0, static_cast<long double>(std::numeric_limits<V>::max()));
            }
            return static_cast<V>(number);
        } else {
            int overflow = 0;
            const long long number = PyLong_AsLongLongAndOverflow(index.ptr(), &overflow);
            if (overflow != 0 || number < static_cast<long long>(std::numeric_limits<V>::min()) ||
                number > static_cast<long long>(std::numeric_limits<V>::max())) {
                refuseRange(where, value, static_cast<long double>(std::numeric_limits<V>::min()),
                            static_cast<long double>(std::numeric_limits<V>::max()));
            }
            return static_cast<V>(number);
        }
    }
    static py::object to(V value, py::handle) { return py::int_(value); }
};

template <typename E>
struct Value<E, std::enable_if_t<std::is_enum_v<E>>> {
    static E from(py::handle value, const FieldName& where) {
        const bool member = py::isinstance(value, EnumClass<E>::type);
        if (!member) {
            const bool otherEnum = py::isinstance(value, enumBaseType());
            if (otherEnum || PyBool_Check(value.ptr()) || !PyIndex_Check(value.ptr())) {
                refuse(where, std::string("a ") + EnumValues<E>::name + " or its number", value);
            }
        }
        py::object index = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
        int overflow = 0;
        const long long number = PyLong_AsLongLongAndOverflow(index.ptr(), &overflow);
        if (overflow != 0 || number < std::numeric_limits<std::int32_t>::min() ||
            number > std::numeric_limits<std::int32_t>::max() ||
            EnumClass<E>::members->count(static_cast<std::int32_t>(number)) == 0) {
            PyErr_Clear();
            refuseEnum(where, EnumValues<E>::name, value);
        }
        return static_cast<E>(number);
    }
    static py::object to(E value, py::handle) {
        const auto found = EnumClass<E>::members->find(static_cast<std::int32_t>(value));
        if (found == EnumClass<E>::members->end()) {
            return py::int_(static_cast<std::int32_t>(value));  // a number the schema does not know
        }
        return py::reinterpret_borrow<py::object>(found->second);
    }
};

/// Arrays: out as a read-only NumPy view of the sample's storage whose base
/// is `owner`; in from any sequence or array of numbers, read in place when
/// it already is a contiguous array of the element type.
template <typename E>
struct Value<orlo::dabo::shared_vector<const E>> {
    using Array = py::array_t<E, py::array::c_style | py::array::forcecast>;

    /// Holds the converted array alive while the view points into it.
    struct Input {
        Array array;
        orlo::dabo::shared_vector<const E> view;
    };

    static Input from(py::handle value, const FieldName& where) {
        if (PyUnicode_Check(value.ptr()) || PyBytes_Check(value.ptr()) || value.is_none()) {
            refuse(where, "a sequence of numbers", value);
        }
        Input input;
        input.array = Array::ensure(value);  // converts, or clears the error and returns null
        if (!input.array) {
            throw py::value_error(where.text() + ": expected a sequence of numbers, got " + typeName(value) +
                                  " with elements that are not numbers");
        }
        if (input.array.ndim() != 1) {
            refuse(where, "a one-dimensional sequence of numbers", value);
        }
        const auto count = static_cast<std::size_t>(input.array.shape(0));
        if (count != 0) {
            std::shared_ptr<const E> storage(input.array.data(), [](const E*) {});
            input.view = orlo::dabo::shared_vector<const E>(std::move(storage), 0, count, count);
        }
        return input;
    }

    static py::object to(const orlo::dabo::shared_vector<const E>& value, py::handle owner) {
        static E none[1] = {};
        const E* data = value.size() == 0 ? none : value.data();
        py::array_t<E> array({static_cast<py::ssize_t>(value.size())}, {static_cast<py::ssize_t>(sizeof(E))},
                             data, owner);
        py::detail::array_proxy(array.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
        return std::move(array);
    }
};

/// A nested topic: out as a sample that views the sub-message (it keeps its
/// parent alive); in from a sample of that topic or a mapping.
template <typename U>
struct Value<std::shared_ptr<U>> {
    static std::shared_ptr<U> from(py::handle value, const FieldName& where) { return entityFrom<U>(value, where); }
    static py::object to(const std::shared_ptr<U>& value, py::handle owner) {
        py::object sample = sampleObject<U>(value);
        py::detail::keep_alive_impl(sample, owner);
        return sample;
    }
};

/// A sequence of nested topics: out as a list of copies; in from any iterable
/// of samples or mappings.
template <typename U>
struct Value<std::vector<std::shared_ptr<U>>> {
    static std::vector<std::shared_ptr<U>> from(py::handle value, const FieldName& where) {
        if (PyUnicode_Check(value.ptr()) || PyBytes_Check(value.ptr()) || py::isinstance<py::dict>(value) ||
            !py::isinstance<py::iterable>(value)) {
            refuse(where, "a sequence of samples or mappings", value);
        }
        std::vector<std::shared_ptr<U>> result;
        for (py::handle element : value) {
            result.push_back(entityFrom<U>(element, where));
        }
        return result;
    }
    static py::object to(const std::vector<std::shared_ptr<U>>& value, py::handle) {
        py::list result;
        for (const auto& element : value) {
            result.append(sampleObject<U>(element));
        }
        return std::move(result);
    }
};

template <typename V>
using ValueOf = Value<std::decay_t<V>>;

template <typename V>
struct IsArray : std::false_type {};
template <typename E>
struct IsArray<orlo::dabo::shared_vector<const E>> : std::true_type {};

}  // namespace lumotypes::python
