#pragma once

#include <optional>
#include <string>
#include <vector>

#include "dabo/Dabo.h"

namespace lumo::record {

/// A topic to record: where it is published, and its type.
struct RecordedUri {
    std::string uri;
    std::string topic;
};

struct RecordOptions {
    std::string output;
    double duration = 0;
    unsigned long count = 0;
    std::vector<RecordedUri> topics;
    /// Every topic under this endpoint and path prefix, at PREFIX/TOPIC.
    std::string prefix;
    std::string compression = "zstd";
    std::size_t chunkSize = 1024 * 1024;
    orlo::dabo::Dabo::Properties properties;
    std::string plugin;
};

/// Parses the command line into `options`: the exit code to end with when
/// the tool should not go on (--help, --version, or a refused argument,
/// already printed), otherwise nothing. Throws `UsageError` for arguments
/// that parse but do not fit together.
std::optional<int> parseRecordOptions(int argc, char** argv, RecordOptions& options);

}  // namespace lumo::record
