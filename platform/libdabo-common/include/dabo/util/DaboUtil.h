#pragma once

#include <cstdint>
#include <string>

#include "dabo/Dabo.h"

namespace orlo::dabo::util {

/// Hash of a topic path: 32-bit FNV-1a over the path's bytes, as a signed
/// 32-bit value. Stable across processes, machines and releases, since
/// publishers and subscribers compute it independently.
std::int32_t topicNameHash(const std::string& topicName);

/// The property `key` as an integer, or `defaultValue` when it is absent.
/// The value must be an optional sign followed by decimal digits; otherwise a
/// DaboException "Property KEY has value 'VALUE', which is not an integer".
/// A number beyond `long` is "..., which is out of range of a long integer".
long getLongProperty(const Dabo::Properties& properties, const std::string& key, long defaultValue);

/// Wall-clock time in milliseconds since the Unix epoch.
long currentTimeMillis();

/// Milliseconds since the epoch as a sample time: seconds since the epoch.
double timestampToDouble(long milliseconds);

/// A sample time in seconds since the epoch as milliseconds, rounded to the
/// nearest millisecond so that timestampFromDouble(timestampToDouble(x)) == x.
long timestampFromDouble(double timestamp);

/// Lower-case hexadecimal text of arbitrary bytes, two digits per byte.
std::string hexStr(const std::string& bytes);

/// A new random (version 4) UUID in its canonical lower-case text form.
std::string newUUID();

}  // namespace orlo::dabo::util
