#include "dabo/krin/detail/binding/messageBytes.h"

#include <google/protobuf/message_lite.h>

#include <zmq.hpp>

// Serialising checks nothing: an incomplete message goes out without its
// absent fields and the receiver refuses it. That is the release behaviour of
// SerializeToArray/SerializeToString; the Partial forms keep it however the
// installed message library was built (a build with its debug checks on
// would otherwise end the process).

namespace orlo::dabo::krin::detail::binding {

bool serializeToMessage(const google::protobuf::MessageLite& message, zmq::message_t& target) {
    const std::size_t size = message.ByteSizeLong();
    target.rebuild(size);
    return message.SerializePartialToArray(target.data(), static_cast<int>(target.size()));
}

bool serializeToString(const google::protobuf::MessageLite& message, std::string& target) {
    return message.SerializePartialToString(&target);
}

bool parseFromString(google::protobuf::MessageLite& message, const std::string& bytes) {
    return message.ParseFromString(bytes);
}

bool parseFromArray(google::protobuf::MessageLite& message, const void* bytes, std::size_t size) {
    return message.ParseFromArray(bytes, static_cast<int>(size));
}

}  // namespace orlo::dabo::krin::detail::binding
