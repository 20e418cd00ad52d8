#pragma once

#include "dabo/ps/DataEntity.h"
#include "dabo/ps/Traceable.h"

namespace orlo::dabo::krin::detail::binding {

/// Carries the trace context from `source` to `target` when both entities
/// take part in tracing; otherwise does nothing. Binding classes themselves
/// never do, so this matters only for host classes derived from them.
inline void copyTraceContext(const orlo::dabo::ps::DataEntityBase& source,
                             orlo::dabo::ps::DataEntityBase& target) {
    const auto* from = dynamic_cast<const orlo::dabo::ps::Traceable*>(&source);
    if (from == nullptr) {
        return;
    }
    auto* to = dynamic_cast<orlo::dabo::ps::Traceable*>(&target);
    if (to == nullptr) {
        return;
    }
    to->setTraceContext(from->getTraceContext());
}

}  // namespace orlo::dabo::krin::detail::binding
