#pragma once

#include <memory>

namespace orlo::dabo::krin::detail::ps {

/// A new empty entity as its binding class, for paths that parse into it
/// before handing it on.
template <typename ST>
std::unique_ptr<ST> createDataEntityImpl() {
    return std::make_unique<ST>();
}

/// A new empty entity as its topic type, object and reference count in one
/// allocation.
template <typename T, typename ST>
std::shared_ptr<T> createDataEntityInternal() {
    return std::make_shared<ST>();
}

}  // namespace orlo::dabo::krin::detail::ps
