#pragma once

#include <google/protobuf/repeated_ptr_field.h>

#include <memory>
#include <vector>

namespace orlo::dabo::krin::detail::binding {

/// Detached copies of a sequence of sub-messages: each element becomes a new
/// binding object of its own, sharing nothing with the parent.
template <typename T, typename ST, typename PB>
std::vector<std::shared_ptr<T>> createVector(const google::protobuf::RepeatedPtrField<PB>& field) {
    std::vector<std::shared_ptr<T>> result;
    result.reserve(static_cast<std::size_t>(field.size()));
    for (const PB& element : field) {
        auto entity = std::make_shared<ST>();
        entity->wireMessage().CopyFrom(element);
        result.push_back(std::move(entity));
    }
    return result;
}

}  // namespace orlo::dabo::krin::detail::binding
