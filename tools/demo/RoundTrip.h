#pragma once

#include <ostream>
#include <string>

#include "tools/loader/PluginLoader.h"

namespace lumo::demo {

/// Creates two entities of `topic` through the plug-in's exported factory,
/// fills the first, takes it to bytes and parses them into the second, and
/// prints what went out and what came back. Returns whether the second
/// entity gave back the same bytes.
bool roundTrip(const tools::PluginLoader& plugin, const std::string& topic, std::ostream& out);

/// Round trip of every topic of the package, in schema order.
bool roundTripAll(const tools::PluginLoader& plugin, std::ostream& out);

}  // namespace lumo::demo
