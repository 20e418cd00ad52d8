#pragma once

#include <cstddef>
#include <string>

#include <zmq.hpp>

#include "dabo/ps/DataEntity.h"

namespace orlo::dabo::krin::detail::ps {

/// The transport's view of an entity of topic `T`: its sample as bytes, and
/// the copy that accepts any implementation of `T` as the source.
template <typename T>
class KrinDataEntity : public orlo::dabo::ps::DataEntity<T> {
public:
    /// Serialises into `target`, rebuilt to exactly the serialised size; the
    /// publish path sends it as the payload frame.
    virtual bool toByteArray(zmq::message_t& target) const = 0;
    /// Serialises into `target`, replacing what it held.
    virtual bool toByteArray(std::string& target) const = 0;
    /// Replaces the sample by the one in `bytes`; false for ill-formed or
    /// incomplete bytes, after which the old content is gone.
    virtual bool fromByteArray(const std::string& bytes) = 0;
    /// As above, from raw memory; what the receive paths call.
    virtual bool fromByteArray(const void* bytes, std::size_t size) = 0;
    /// Overwrites every field from `source` through its accessors.
    virtual void copy(const T& source) = 0;
};

}  // namespace orlo::dabo::krin::detail::ps
