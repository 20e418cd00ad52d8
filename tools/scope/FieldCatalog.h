#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <map>
#include <string>
#include <vector>

namespace lumo::scope {

/// One numeric field of a topic that can be plotted, found by walking the
/// topic's message type: nested messages are entered, and a repeated field
/// anywhere on the way makes the field an array whose values are the leaves
/// in message order.
struct PlotField {
    /// Dotted path from the topic's message; "[]" marks a repeated step, as in
    /// "wfs_gp1_err[].flux" or "gp1_cent_err[]".
    std::string path;
    bool array = false;
    /// "number", "bool" or "enum".
    std::string kind;
    /// For an enumeration: its values' names by number.
    std::map<int, std::string> enumNames;
    /// The fields from the message to the leaf.
    std::vector<const google::protobuf::FieldDescriptor*> steps;
};

/// Every plottable field of `type`, in schema order, depth first.
std::vector<PlotField> plotFieldsOf(const google::protobuf::Descriptor& type);

/// The value of scalar `field` in `message`.
double scalarValue(const google::protobuf::Message& message, const PlotField& field);

/// The values of array `field` in `message`, replacing `values`.
void arrayValues(const google::protobuf::Message& message, const PlotField& field, std::vector<double>& values);

}  // namespace lumo::scope
