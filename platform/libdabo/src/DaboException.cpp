#include "dabo/DaboException.h"

#include "dabo/Dabo.h"

namespace orlo::dabo {

Dabo::~Dabo() = default;
DaboException::~DaboException() = default;
IllegalStateException::~IllegalStateException() = default;
TimeoutException::~TimeoutException() = default;

}  // namespace orlo::dabo
