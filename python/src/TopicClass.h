#pragma once

// One Python class per topic, made from the topic's field table: a property
// per wire field, construction from keyword arguments or a mapping, and the
// payload bytes.

#include <pybind11/pybind11.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "HostAccess.h"
#include "Sample.h"
#include "Values.h"
#include "lumotypes/host/Payload.h"
#include "lumotypes/host/Topics.h"

namespace lumotypes::python {

namespace py = pybind11;

template <typename T>
using SampleClass = py::class_<Sample<T>, std::shared_ptr<Sample<T>>>;

/// The setters of topic `T` by field name, for keyword arguments and mappings.
template <typename T>
struct Setters {
    using Setter = std::function<void(Sample<T>&, py::handle)>;
    static std::map<std::string, Setter>& byName() {
        static auto* setters = new std::map<std::string, Setter>();
        return *setters;
    }
};

/// Continues `sample` in a copy of its entity, leaving the old one to the
/// views that still point into it.
template <typename T>
void retire(Sample<T>& sample) {
    sample.retired.push_back(sample.entity);
    sample.entity = std::shared_ptr<T>(sample.entity->clone());
    sample.viewed = false;
}

/// A new entity of `T` whose every field is set, to its default value: the
/// schema's fields are required, and a sample is always complete.
template <typename T>
std::shared_ptr<T> newEntity() {
    std::shared_ptr<T> entity(plugin().createDataEntity<T>());
    Fields<T>::forEach([&](const char*, auto getter, auto setter) { ((*entity).*setter)(((*entity).*getter)()); });
    return entity;
}

template <typename T>
void assignFields(Sample<T>& sample, py::handle mapping, const py::kwargs& keywords) {
    const auto& setters = Setters<T>::byName();
    auto assign = [&](py::handle key, py::handle value) {
        if (!PyUnicode_Check(key.ptr())) {
            throw py::type_error(std::string(host::TopicTraits<T>::name) + ": field names are strings, not " +
                                 typeName(key));
        }
        const std::string name = py::str(key);
        const auto setter = setters.find(name);
        if (setter == setters.end()) {
            throw py::type_error(std::string(host::TopicTraits<T>::name) + " has no field '" + name + "'");
        }
        setter->second(sample, value);
    };
    if (mapping && !mapping.is_none()) {
        if (!PyMapping_Check(mapping.ptr()) || PySequence_Check(mapping.ptr())) {
            throw py::type_error(std::string(host::TopicTraits<T>::name) +
                                 "() takes a mapping of field names, not " + typeName(mapping));
        }
        py::object items = py::reinterpret_steal<py::object>(PyMapping_Items(mapping.ptr()));
        if (!items) {
            throw py::error_already_set();
        }
        for (py::handle item : items) {
            assign(item[py::int_(0)], item[py::int_(1)]);
        }
    }
    for (const auto& [key, value] : keywords) {
        assign(key, value);
    }
}

template <typename T>
py::object sampleObject(std::shared_ptr<T> entity) {
    return py::cast(std::make_shared<Sample<T>>(std::move(entity)));
}

template <typename T>
std::shared_ptr<T> entityFrom(py::handle value, const FieldName& where) {
    if (py::isinstance<Sample<T>>(value)) {
        return value.cast<Sample<T>&>().entity;
    }
    if (PyMapping_Check(value.ptr()) && !PySequence_Check(value.ptr())) {
        Sample<T> sample(newEntity<T>());
        assignFields(sample, value, py::kwargs());
        return sample.entity;
    }
    refuse(where, std::string("a ") + host::TopicTraits<T>::name + " or a mapping of its fields", value);
}

/// Adds the property of one field to the class of `T` and its setter to Setters<T>.
template <typename T>
struct FieldBinder {
    SampleClass<T>& cls;
    py::list& names;

    template <typename Getter, typename Setter>
    void operator()(const char* name, Getter getter, Setter setter) {
        using V = std::decay_t<decltype((std::declval<T&>().*getter)())>;
        const FieldName where{host::TopicTraits<T>::name, name};
        auto set = [getter, setter, where](Sample<T>& sample, py::handle value) {
            if constexpr (IsArray<V>::value) {
                const auto input = Value<V>::from(value, where);
                if (sample.viewed && input.view.size() > ((*sample.entity).*getter)().dataTotal()) {
                    retire(sample);
                }
                ((*sample.entity).*setter)(input.view);
            } else {
                ((*sample.entity).*setter)(Value<V>::from(value, where));
            }
        };
        auto get = [getter](py::handle self) {
            auto& sample = self.cast<Sample<T>&>();
            if constexpr (IsArray<V>::value) {
                sample.viewed = true;
            }
            return Value<V>::to(((*sample.entity).*getter)(), self);
        };
        cls.def_property(name, get, set);
        Setters<T>::byName().emplace(name, set);
        names.append(name);
    }
};

template <typename T>
void bindTopic(py::module_& module) {
    using Traits = host::TopicTraits<T>;
    SampleClass<T> cls(module, Traits::name,
                       (std::string("A sample of topic ") + Traits::name + ": one attribute per wire field.").c_str());
    cls.def(py::init([](py::object mapping, const py::kwargs& keywords) {
                auto sample = std::make_shared<Sample<T>>(newEntity<T>());
                assignFields(*sample, mapping, keywords);
                return sample;
            }),
            py::arg("fields") = py::none(),
            "A sample with every field at its default, then the fields of the mapping and the keywords.");
    py::list names;
    Fields<T>::forEach(FieldBinder<T>{cls, names});
    cls.attr("_fields") = py::tuple(names);
    cls.attr("wire_type") = Traits::wireType;
    cls.def(
        "update",
        [](Sample<T>& sample, py::object mapping, const py::kwargs& keywords) {
            assignFields(sample, mapping, keywords);
        },
        py::arg("fields") = py::none(), "Sets the fields of the mapping and the keywords.");
    cls.def(
        "copy", [](const Sample<T>& sample) { return Sample<T>(std::shared_ptr<T>(sample.entity->clone())); },
        "An independent copy.");
    cls.def(
        "to_bytes", [](const Sample<T>& sample) { return py::bytes(host::toBytes(*sample.entity)); },
        "The payload bytes, as they go on the wire.");
    cls.def_static(
        "from_bytes",
        [](const py::bytes& bytes) {
            auto sample = std::make_shared<Sample<T>>(newEntity<T>());
            if (!host::fromBytes(*sample->entity, std::string(bytes))) {
                throw py::value_error(std::string(Traits::name) +
                                      ": the bytes are not a complete payload of this topic");
            }
            return sample;
        },
        py::arg("payload"), "A sample from payload bytes; ValueError for bytes that are not one.");
}

}  // namespace lumotypes::python
