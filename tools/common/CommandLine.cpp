#include "tools/common/CommandLine.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <iostream>

#include "lumotypes/host/Properties.h"

namespace lumo::tools {

void addProperty(orlo::dabo::Dabo::Properties& properties, const std::string& text) {
    const auto equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw UsageError("property '" + text + "' is not of the form key=value");
    }
    properties[text.substr(0, equals)] = text.substr(equals + 1);
}

std::string optionValue(int argc, char** argv, int& index, const std::string& name) {
    if (index + 1 >= argc) {
        throw UsageError("option " + name + " needs a value");
    }
    return argv[++index];
}

double positiveNumber(const std::string& text, const std::string& name) {
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || errno != 0 || !std::isfinite(value) || value <= 0) {
        throw UsageError("option " + name + " needs a positive number, not '" + text + "'");
    }
    return value;
}

unsigned long wholeNumber(const std::string& text, const std::string& name) {
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || text[0] == '-' || *end != '\0' || errno != 0) {
        throw UsageError("option " + name + " needs a whole number, not '" + text + "'");
    }
    return value;
}

void checkProperties(const orlo::dabo::Dabo::Properties& properties, const std::string& tool) {
    for (const std::string& key : lumotypes::host::properties::checkProperties(properties)) {
        std::cerr << tool << ": property " << key << " is read by neither the runtime nor the plug-in" << std::endl;
    }
}

}  // namespace lumo::tools
