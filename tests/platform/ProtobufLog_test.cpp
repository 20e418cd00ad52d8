// Protocol Buffers' own log lines, once a runtime exists: through the
// project's logger, in its levels, a repeated line held back; never the
// library's unformatted line on stderr.

#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../support/CapturingAppender.h"
#include "dabo/krin/detail/KrinDabo.h"

namespace {

using orlo::dabo::krin::detail::KrinDabo;

TEST(ProtobufLogTest, ProtobufLinesReachTheProjectsLoggerAndNeverStderr) {
    lumo::test::CaptureLog log("vexa.dabo.krin.protobuf", log4cplus::TRACE_LOG_LEVEL);
    auto dabo = KrinDabo::create({});
    const std::string refusal = "Can't parse message of type \"a.B\" because it is missing required fields: c";

    testing::internal::CaptureStderr();
    for (int n = 0; n < 1000; ++n) {
        GOOGLE_LOG(ERROR) << refusal;
    }
    GOOGLE_LOG(WARNING) << "a warning";
    GOOGLE_LOG(INFO) << "a note";
    const std::string stderrText = testing::internal::GetCapturedStderr();

    EXPECT_EQ(stderrText.find("[libprotobuf"), std::string::npos) << stderrText;
    // The flood of one line is one line: the repeats are held back.
    EXPECT_EQ(log.errors(), std::vector<std::string>{refusal});
    EXPECT_EQ(log.warnings(), std::vector<std::string>{"a warning"});
    EXPECT_EQ(log.traces(), std::vector<std::string>{"a note"});
}

}  // namespace
