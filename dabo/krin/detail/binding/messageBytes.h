#pragma once

#include <cstddef>
#include <string>

namespace google::protobuf {
class MessageLite;
}
namespace zmq {
class message_t;
}

namespace orlo::dabo::krin::detail::binding {

// The byte operations every binding class forwards to. They do not depend on
// the topic, so they are compiled once.

/// Serialises straight into `target`, rebuilt to exactly the serialised size.
/// A ZeroMQ failure to rebuild throws `zmq::error_t`.
bool serializeToMessage(const google::protobuf::MessageLite& message, zmq::message_t& target);

/// Serialises into `target`, replacing what it held.
bool serializeToString(const google::protobuf::MessageLite& message, std::string& target);

/// Clears `message` and parses `bytes` into it; false for ill-formed bytes or
/// a missing required field.
bool parseFromString(google::protobuf::MessageLite& message, const std::string& bytes);

/// As above, from raw memory. `size` is narrowed to the message library's int.
bool parseFromArray(google::protobuf::MessageLite& message, const void* bytes, std::size_t size);

}  // namespace orlo::dabo::krin::detail::binding
