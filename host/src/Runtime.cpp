#include "lumotypes/host/Runtime.h"

#include "dabo/krin/detail/KrinDabo.h"

namespace lumotypes::host {

Runtime createRuntime(const orlo::dabo::Dabo::Properties& properties) {
    return orlo::dabo::krin::detail::KrinDabo::create(properties);
}

}  // namespace lumotypes::host
