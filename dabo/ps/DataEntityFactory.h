#pragma once

#include <memory>

namespace orlo::dabo::ps {

/// Makes new, empty entities of topic `T` in the binding of whoever implements it.
template <typename T>
class DataEntityFactory {
public:
    virtual std::shared_ptr<T> createDataEntity() = 0;

protected:
    // Not virtual, so the factory adds no slot of its own: nobody deletes
    // through this interface.
    ~DataEntityFactory() = default;
};

}  // namespace orlo::dabo::ps
