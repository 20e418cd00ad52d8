#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/mcap/Records.h"

namespace lumo::mcap {

/// The file could not be written: opened, extended or closed. What was
/// written before the failure stays in the file.
class WriteError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct WriterOptions {
    std::string profile;
    std::string library = "lumotypes-krin";
    /// "zstd", "lz4" or "" for none.
    std::string compression = "zstd";
    /// A chunk is closed and written when its records reach this size.
    std::size_t chunkSize = 1024 * 1024;
};

/// Writes a recording as it goes: the header, schemas and channels at once,
/// messages in chunks that are compressed, written and flushed to the file
/// whole, each followed by its message indexes; `close()` adds the summary
/// (schemas, channels, statistics, chunk indexes), the summary offsets and
/// the footer. A file cut short after any chunk still reads up to that chunk.
class Writer {
public:
    /// Creates or truncates `path`; throws `WriteError` if it cannot.
    Writer(const std::string& path, WriterOptions options = {});
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    /// Closes the file if `close()` was not called, without the summary if
    /// that fails.
    ~Writer();

    /// Returns the new schema's id.
    std::uint16_t addSchema(const std::string& name, const std::string& encoding, const std::string& data);
    /// Returns the new channel's id.
    std::uint16_t addChannel(std::uint16_t schemaId, const std::string& topic, const std::string& messageEncoding,
                             const std::map<std::string, std::string>& metadata = {});
    /// Adds a message to the open chunk, which is written when full.
    void write(const Message& message);
    /// Writes the open chunk, if it holds a message, and flushes it to the file.
    void flushChunk();
    /// Writes the last chunk and the summary, and closes the file.
    void close();

    /// Bytes written to the file so far.
    std::uint64_t bytesWritten() const { return offset; }
    const std::string& path() const { return filePath; }
    /// Messages in the chunk not yet written.
    std::size_t pendingMessages() const { return chunkMessages; }

private:
    void append(const std::string& bytes);
    void writeSummary();

    std::string filePath;
    WriterOptions options;
    int fd = -1;
    std::uint64_t offset = 0;
    std::uint32_t dataCrc = 0;
    bool closed = false;

    std::vector<Schema> schemas;
    std::vector<Channel> channels;
    Statistics statistics;
    std::vector<ChunkIndex> chunkIndexes;

    std::string chunkRecords;
    std::size_t chunkMessages = 0;
    std::uint64_t chunkStart = 0;
    std::uint64_t chunkEnd = 0;
    std::map<std::uint16_t, MessageIndex> chunkIndexEntries;
};

}  // namespace lumo::mcap
