#pragma once

#include <cassert>
#include <cstddef>
#include <memory>

#include "dabo/ps/queue/obtainImpl.h"

namespace orlo::dabo::ps::queue::detail {

/// Hash of an instance key. Only the binding can compare keys, and it offers
/// no hash, so every key falls into one bucket and lookups walk with keyEquals.
template <typename T, typename ST>
struct STHash {
    std::size_t operator()(const std::unique_ptr<T>& key) const {
        assert(key && "an instance key is never null");
        // The cast is the type check: a key of a foreign class is refused here.
        obtainImpl<T, ST>(*key);
        return 0;
    }
};

/// Equality of instance keys, as the binding's keyEquals sees it.
template <typename T, typename ST>
struct STEqual {
    bool operator()(const std::unique_ptr<T>& a, const std::unique_ptr<T>& b) const {
        assert(a && b && "an instance key is never null");
        const ST& first = obtainImpl<T, ST>(*a);
        obtainImpl<T, ST>(*b);
        return first.keyEquals(*b);
    }
};

}  // namespace orlo::dabo::ps::queue::detail
