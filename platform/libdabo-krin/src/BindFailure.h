#pragma once

#include <string>
#include <zmq.hpp>

namespace orlo::dabo::krin::detail {

/// "Failed to bind endpoint ENDPOINT: ZEROMQ ERROR", followed by what it
/// means for a publisher's endpoint where the cause is known: the address
/// taken by another program, no permission, a host that is no address or
/// interface of this machine.
std::string describeBindFailure(const std::string& endpoint, const zmq::error_t& error);

}  // namespace orlo::dabo::krin::detail
