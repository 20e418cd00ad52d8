#include "dabo/krin/detail/binding/messageBytes.h"

#include <google/protobuf/message_lite.h>

#include <zmq.hpp>

namespace orlo::dabo::krin::detail::binding {

bool serializeToMessage(const google::protobuf::MessageLite& message, zmq::message_t& target) {
    const std::size_t size = message.ByteSizeLong();
    target.rebuild(size);
    return message.SerializeToArray(target.data(), static_cast<int>(target.size()));
}

bool serializeToString(const google::protobuf::MessageLite& message, std::string& target) {
    return message.SerializeToString(&target);
}

bool parseFromString(google::protobuf::MessageLite& message, const std::string& bytes) {
    return message.ParseFromString(bytes);
}

bool parseFromArray(google::protobuf::MessageLite& message, const void* bytes, std::size_t size) {
    return message.ParseFromArray(bytes, static_cast<int>(size));
}

}  // namespace orlo::dabo::krin::detail::binding
