#pragma once

#include <string>

namespace orlo::dabo::ps {

/// Optional capability of an entity: it can carry the serialised trace context
/// of the span that produced it. Asked for with dynamic_cast; an entity class
/// takes part by deriving from it beside its topic type.
class Traceable {
public:
    virtual ~Traceable() = default;
    virtual std::string getTraceContext() const = 0;
    virtual void setTraceContext(const std::string& context) = 0;
};

}  // namespace orlo::dabo::ps
