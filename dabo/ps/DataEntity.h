#pragma once

#include <memory>

namespace orlo::dabo::ps {

/// Common root of every entity, whatever its topic.
class DataEntityBase {
public:
    virtual ~DataEntityBase() = default;
};

/// Operations every entity of topic `T` offers, whatever its binding.
template <typename T>
class DataEntity : public virtual DataEntityBase {
public:
    /// A complete, independent copy of this entity.
    virtual std::unique_ptr<T> clone() const = 0;
    /// Whether `other` belongs to the same instance (has an equal key).
    virtual bool keyEquals(const T& other) const = 0;
    /// A new entity that carries this entity's key and nothing else.
    virtual std::unique_ptr<T> cloneKey() const = 0;
    /// Whether entities of this topic have a key at all.
    virtual bool hasKey() const = 0;
};

}  // namespace orlo::dabo::ps
