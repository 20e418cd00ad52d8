#pragma once

#include <ostream>
#include <string>

namespace lumo::play {

/// Describes a recording: its writer, message and chunk counts, time span,
/// and per channel its topic, count, rate and schema. A closed file is
/// described from its summary alone; one that was not closed is scanned if
/// `recover`, and refused otherwise.
void printInfo(const std::string& file, bool recover, std::ostream& out);

}  // namespace lumo::play
