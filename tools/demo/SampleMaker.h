#pragma once

#include <google/protobuf/message.h>

#include <string>

#include "tools/common/Schema.h"

namespace lumo::demo {

/// Fills every field of `message` through reflection, with values that
/// follow from `seed` alone: numbers, a valid value of each enumeration,
/// arrays and sequences of a few elements. No number is zero and no
/// enumeration has its first value, so no sample equals the probe.
void fillEveryField(google::protobuf::Message& message, unsigned seed);

/// The payload of a sample of `topic` made by `fillEveryField`.
std::string sampleBytes(tools::Schema& schema, const std::string& topic, unsigned seed);

/// The payload of a sample of `topic` whose fields all have their default
/// values: never made by `fillEveryField`, hence a probe that cannot be
/// mistaken for a real sample.
std::string probeBytes(tools::Schema& schema, const std::string& topic);

}  // namespace lumo::demo
