#pragma once

#include <map>
#include <string>

namespace orlo::dabo {

/// Root interface of the middleware. A transport runtime is a Dabo; hosts
/// configure it, and everything made from it, through string properties.
class Dabo {
public:
    using Properties = std::map<std::string, std::string>;

    virtual ~Dabo();
};

}  // namespace orlo::dabo
