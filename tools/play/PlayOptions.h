#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dabo/Dabo.h"

namespace lumo::play {

struct PlayOptions {
    std::string file;
    std::string uri;
    double speed = 1;
    bool asFastAsPossible = false;
    bool loop = false;
    bool info = false;
    /// Play the complete chunks of a recording that was not closed.
    bool recover = false;
    /// Channel topics or topic types to play; empty for all.
    std::vector<std::string> topics;
    /// Channel topics beginning with `first` are published under `second` instead.
    std::vector<std::pair<std::string, std::string>> remaps;
    orlo::dabo::Dabo::Properties properties;
    std::string plugin;
};

/// Parses the command line into `options`: the exit code to end with when
/// the tool should not go on (--help, --version, or a refused argument,
/// already printed), otherwise nothing. Throws `UsageError` for arguments
/// that parse but do not fit together.
std::optional<int> parsePlayOptions(int argc, char** argv, PlayOptions& options);

}  // namespace lumo::play
