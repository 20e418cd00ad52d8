#pragma once

#include <string>

namespace lumo::scope {

/// Appends `text` as a JSON string.
void appendJsonString(std::string& out, const std::string& text);

/// Appends `value` as a JSON number that reads back to the same double; null
/// for NaN and the infinities, which JSON cannot carry.
void appendJsonNumber(std::string& out, double value);

}  // namespace lumo::scope
