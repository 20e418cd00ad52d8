#pragma once

#include <stdexcept>
#include <string>

// The exception family is part of the ABI between hosts and plug-ins: a host
// catches by type what a plug-in throws, so the type information must be one
// and the same object in every module. The classes are exported and their key
// functions (the destructors) live in libdabo.
#define DABO_EXCEPTION_API __attribute__((visibility("default")))

namespace orlo::dabo {

/// Misuse of an interface or a failed set-up. The message is the `what()` text.
class DABO_EXCEPTION_API DaboException : public std::runtime_error {
public:
    explicit DaboException(const std::string& message) : std::runtime_error(message) {}
    ~DaboException() override;
};

/// An operation that the object's current state does not allow.
class DABO_EXCEPTION_API IllegalStateException : public DaboException {
public:
    explicit IllegalStateException(const std::string& message) : DaboException(message) {}
    ~IllegalStateException() override;
};

/// An operation that could not complete within its time limit.
class DABO_EXCEPTION_API TimeoutException : public DaboException {
public:
    explicit TimeoutException(const std::string& message) : DaboException(message) {}
    ~TimeoutException() override;
};

}  // namespace orlo::dabo
