// The recording reader as krin-play meets a file: any bytes are either read
// (summary, then every record, an unclosed file accepted) or refused with a
// FormatError naming the file; nothing else may leave, and a read file hands
// out no more messages than its records can hold.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

#include "tools/mcap/Reader.h"

namespace {

/// The reader works on files, as the player does; one scratch file per process.
const std::string& scratchPath() {
    static const std::string path = "/tmp/mcapReader_fuzz-" + std::to_string(::getpid()) + ".mcap";
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    {
        std::ofstream out(scratchPath(), std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    try {
        lumo::mcap::Reader reader(scratchPath());
        reader.summary();
        std::uint64_t bytes = 0;
        lumo::mcap::Visitor visitor;
        visitor.message = [&](const lumo::mcap::Message& message, const lumo::mcap::Channel&,
                              const lumo::mcap::Location&) { bytes += message.data.size(); };
        reader.scan(visitor, true);
        // Compressed chunks may expand, but never beyond the cap on a chunk.
        if (bytes > (std::uint64_t{1} << 30) * (size + 1)) {
            __builtin_trap();
        }
    } catch (const lumo::mcap::FormatError& refusal) {
        if (refusal.file() != scratchPath()) {
            __builtin_trap();
        }
    }
    return 0;
}
