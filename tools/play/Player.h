#pragma once

#include <atomic>

#include "tools/play/PlayOptions.h"

namespace lumo::play {

/// Plays the file until its end (again and again with --loop) or until
/// `interrupted`; returns the exit code. Throws `FormatError` for a file that
/// cannot be played, `UsageError` for a bad argument, and other exceptions
/// for a failed set-up.
int play(const PlayOptions& options, const std::atomic<bool>& interrupted);

}  // namespace lumo::play
