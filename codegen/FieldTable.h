#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

namespace lumo::codegen {

/// The text of `<ns>/Fields.h`: for every topic of `file`, its wire fields in
/// schema order with the accessors of its topic class, and for every
/// enumeration its name and values. Code that treats all topics alike (a
/// binding to another language, for one) visits these at compile time
/// instead of keeping a table of its own.
std::string fieldTableHeader(const google::protobuf::FileDescriptor& file, const std::string& ns,
                             const std::string& banner);

}  // namespace lumo::codegen
