#include "tools/perf/Result.h"

#include <cstdio>

namespace lumo::perf {

Result& Result::text(const std::string& key, const std::string& value) {
    fields.push_back({key, value, true});
    return *this;
}

Result& Result::number(const std::string& key, double value, int decimals) {
    char formatted[64];
    std::snprintf(formatted, sizeof formatted, "%.*f", decimals, value);
    fields.push_back({key, formatted, false});
    return *this;
}

Result& Result::flag(const std::string& key, bool value) {
    fields.push_back({key, value ? "true" : "false", false});
    return *this;
}

std::string Result::line(bool json) const {
    std::string out = json ? "{" : "RESULT";
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const Field& field = fields[i];
        if (json) {
            // Keys and texts are the run's own words (modes, implementation
            // names): nothing in them needs escaping.
            out += (i == 0 ? "\"" : ", \"") + field.key + "\": " +
                   (field.quoted ? "\"" + field.value + "\"" : field.value);
        } else {
            out += " " + field.key + "=" + field.value;
        }
    }
    return out + (json ? "}" : "");
}

}  // namespace lumo::perf
