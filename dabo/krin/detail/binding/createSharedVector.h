#pragma once

#include <google/protobuf/repeated_field.h>

#include <memory>

#include "dabo/krin/detail/binding/NoopDeleter.h"
#include "dabo/utility/shared_vector.h"

namespace orlo::dabo::krin::detail::binding {

/// A read-only view of an array field's own storage, without copying an
/// element. The view owns nothing: it is valid while the entity lives and
/// until the field is next written or parsed into.
template <typename E>
shared_vector<const E> createSharedVector(const google::protobuf::RepeatedField<E>& field) {
    const std::size_t capacity = static_cast<std::size_t>(field.Capacity());
    E* elements = capacity == 0 ? nullptr : const_cast<E*>(field.data());
    std::shared_ptr<E> storage(elements, NoopDeleter<E*>());
    shared_vector<E> view(std::move(storage), 0, static_cast<std::size_t>(field.size()), capacity);
    return freeze(std::move(view));
}

}  // namespace orlo::dabo::krin::detail::binding
