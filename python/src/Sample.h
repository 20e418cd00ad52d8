#pragma once

#include <memory>
#include <vector>

namespace lumotypes::python {

/// What a Python object of topic `T` holds: the plug-in's entity, the sample's
/// only storage. Arrays handed to Python view that storage; when a write
/// would move the storage of a field that Python may still view, the sample
/// continues in a copy and keeps the old entity in `retired`, so no view ever
/// points at freed memory.
template <typename T>
struct Sample {
    explicit Sample(std::shared_ptr<T> entity) : entity(std::move(entity)) {}

    std::shared_ptr<T> entity;
    std::vector<std::shared_ptr<T>> retired;
    bool viewed = false;  // an array view of `entity` was handed out
};

}  // namespace lumotypes::python
