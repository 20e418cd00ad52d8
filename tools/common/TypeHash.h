#pragma once

#include <cstdint>
#include <string>

namespace lumo::tools {

/// The constant that the plug-in's publishers put in the header of `topic`
/// (a topic of the package); tools that read the wire compare it with each
/// sample's.
std::uint32_t typeHashOf(const std::string& topic);

}  // namespace lumo::tools
