#pragma once

#include <atomic>

#include "tools/record/RecordOptions.h"

namespace lumo::record {

/// Records until `interrupted`, --duration or --count; returns the exit code.
/// Throws `UsageError` for a bad URI, topic or property, `WriteError` when
/// the file cannot be written, and other exceptions for a failed set-up.
int record(const RecordOptions& options, const std::atomic<bool>& interrupted);

}  // namespace lumo::record
