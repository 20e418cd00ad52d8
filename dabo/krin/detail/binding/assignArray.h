#pragma once

#include <google/protobuf/repeated_field.h>

#include "dabo/utility/shared_vector.h"

namespace orlo::dabo::krin::detail::binding {

/// Replaces the field's elements by copies of `value`'s. The field keeps its
/// storage and grows one step at a time, letting the message library choose
/// the growth, so a field that is written with arrays of a steady length stops
/// reallocating. Because the storage stays, assigning a field its own view
/// rewrites each element in place.
template <typename E>
void assignArray(google::protobuf::RepeatedField<E>& field, const shared_vector<const E>& value) {
    field.Clear();
    const std::size_t count = value.size();
    if (count == 0) {
        return;
    }
    const E* source = value.data();
    for (std::size_t i = 0; i < count; ++i) {
        if (field.size() == field.Capacity()) {
            field.Reserve(field.size() + 1);
        }
        field.Add(source[i]);
    }
}

}  // namespace orlo::dabo::krin::detail::binding
