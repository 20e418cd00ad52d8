#pragma once

#include <log4cplus/logger.h>

#include <set>
#include <string>
#include <vector>
#include <zmq.hpp>

namespace orlo::dabo::krin::detail {

/// Decides which CURVE clients the runtime's XPUBs admit. ZeroMQ asks the
/// handler bound at inproc://zeromq.zap.01 of a context before it completes a
/// CURVE server's handshake (ZAP, the ZeroMQ authentication protocol); this
/// is that handler, for the context of one runtime. It is served on the
/// runtime's thread, one request at a time.
///
/// A client whose public key is listed gets status 200; any other gets 400,
/// which ends its handshake for good, and one WARN line on the runtime's
/// logger naming its key and address (public keys are not secret).
class ZapAuthenticator {
public:
    /// Binds the handler in `context`; `authorizedKeys` are Z85 public keys.
    ZapAuthenticator(zmq::context_t& context, std::set<std::string> authorizedKeys);
    ~ZapAuthenticator();
    ZapAuthenticator(const ZapAuthenticator&) = delete;
    ZapAuthenticator& operator=(const ZapAuthenticator&) = delete;

    /// For the runtime's poll items.
    zmq::socket_t& socket() { return handler; }

    /// Answers every request waiting now, up to a bound per call.
    void serve();

    /// The endpoint at which ZeroMQ looks for the handler.
    static const char* const endpoint;

private:
    /// Reads one request; false when none is waiting.
    bool receive(std::vector<zmq::message_t>& frames);
    /// The reply to a complete request.
    void answer(const std::vector<zmq::message_t>& request);
    void reply(const std::string& requestId, const std::string& status, const std::string& text,
               const std::string& userId);

    std::set<std::string> authorizedKeys;
    log4cplus::Logger logger;
    zmq::socket_t handler;
};

}  // namespace orlo::dabo::krin::detail
