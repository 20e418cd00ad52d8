#pragma once

// Shared by the fuzz targets: a quiet logging set-up and a reader of the
// fuzzer's bytes. A failed check ends the run with abort(), which libFuzzer
// reports as a crash and saves as a reproducer.

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace lumo::fuzz {

/// Every line still goes through the loggers (so their text is built and the
/// code that builds it is exercised) but ends nowhere.
inline void silenceLogging() {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender()));
    root.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
}

[[noreturn]] inline void failCheck(const char* what, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: fuzz check failed: %s\n", file, line, what);
    std::abort();
}

#define LUMO_FUZZ_CHECK(condition)                                  \
    do {                                                            \
        if (!(condition)) {                                         \
            ::lumo::fuzz::failCheck(#condition, __FILE__, __LINE__); \
        }                                                           \
    } while (false)

/// Takes the fuzzer's bytes apart from the front.
class ByteReader {
public:
    ByteReader(const std::uint8_t* data, std::size_t size) : data(data), size(size) {}

    std::uint8_t byte() { return offset < size ? data[offset++] : 0; }

    /// At most `length` bytes, fewer when the input runs out.
    std::string bytes(std::size_t length) {
        const std::size_t taken = length < size - offset ? length : size - offset;
        std::string text(reinterpret_cast<const char*>(data) + offset, taken);
        offset += taken;
        return text;
    }

    std::string rest() { return bytes(size - offset); }

private:
    const std::uint8_t* data;
    std::size_t size;
    std::size_t offset = 0;
};

}  // namespace lumo::fuzz
